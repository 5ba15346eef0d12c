// SPDX-License-Identifier: BSD-3-Clause
#include "intent_load.h"

#include <Corvane/IntentRequest>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>

using Corvane::Error;
using Corvane::IntentsInvoker;

namespace {

const int Callers = 8;
const int MostAtOnce = 16; // calls of one caller in flight
const int MostPerInvoker = 300; // calls, before another invoker replaces it
const int MostUnaudited = 512; // messages with a file that the auditor has not received
const int RefillInterval = 20; // milliseconds
const int LongestDelay = 100; // milliseconds
const int LongestText = 20000; // characters

/// The soak never kills the first one.
const char *const Applications[] = {"steady", "fragile", "brittle"};

QString toText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace

bool IntentLoad::Call::isRight(const QJsonObject &reply, const Error &error) const
{
    if (!error)
        return code == Error::NoError && reply == params;
    if (!reply.isEmpty())
        return false;
    if (!killable.isEmpty() && error.code() == Error::HandlerFailed
        && error.message().startsWith(killable + ".instance"))
        return true; // not ApplicationNotRunning: the soak kills running applications only, and the stand-in starts
                     // an application again for waiting calls
    return code == error.code() && error.message().endsWith(message);
}

/// Keeps several calls of one invoker in flight. Replaces the invoker from time to time.
class Caller : public QObject
{
    Q_OBJECT
public:
    using Call = IntentLoad::Call;

    explicit Caller(IntentLoad &load) : m_load(load) { renew(); }

    /// Makes calls until the limits are reached.
    void fill();
    void invoke(const Call &call);
    /// Returns the calls in flight by their ids.
    const QMap<int, Call> &calls() const { return m_calls; }

private:
    void renew();
    Call makeCall();
    void request(const Call &call, const QJsonObject &hints);
    void onReply(const QJsonObject &reply, const Error &error);
    /// \param call is the call with this outcome, or the end of the calls if no call expects it.
    void onOutcome(QMap<int, Call>::const_iterator call, const QJsonObject &reply, const Error &error);
    void count(const Call &call, const Error &error);

    IntentLoad &m_load;
    std::unique_ptr<IntentsInvoker> m_invoker;
    /// In the order of the calls. An error without an id belongs to the oldest call that may fail this way.
    QMap<int, Call> m_calls;
    int m_left = 0; ///< The number of calls that the invoker has not made.
    int m_atOnce = 1;
    bool m_isImpatient = false; ///< Delete the invoker without waiting for the last outcomes.
};

void Caller::renew()
{
    for (const Call &call : qAsConst(m_calls)) {
        ++m_load.m_counts.dropped;
        if (call.hasFile)
            m_load.m_auditor.onDropped(call.id);
    }
    m_calls.clear();
    m_invoker = std::make_unique<IntentsInvoker>();
    connect(m_invoker.get(), &IntentsInvoker::replyReceived, this, &Caller::onReply);
    ++m_load.m_counts.invokers;

    QRandomGenerator &random = m_load.m_random;
    m_left = 1 + random.bounded(MostPerInvoker);
    m_atOnce = 1 + random.bounded(MostAtOnce);
    m_isImpatient = random.bounded(2) == 0;
}

void Caller::fill()
{
    while (m_load.m_isOn && m_left > 0 && m_calls.size() < m_atOnce && m_load.m_auditor.outstanding() < MostUnaudited) {
        --m_left;
        invoke(makeCall());
    }
}

void Caller::invoke(const Call &call)
{
    m_calls.insert(call.id, call);
    ++m_load.m_counts.invoked;
    QJsonObject hints{{"urgent", call.id % 2 == 0}};
    if (call.hasFile) {
        ++m_load.m_counts.withFile;
        m_load.m_auditor.onSent(call.id);
        hints.insert("readFiles", "read");
        hints.insert("writeFiles", QJsonArray{"write"});
    }
    if (call.isRequest())
        request(call, hints);
    else
        m_invoker->invoke(call.intentName, hints, call.params);
}

void Caller::request(const Call &call, const QJsonObject &hints)
{
    auto *const request = m_invoker->request(call.intentName, hints, call.params);
    request->setAutoDelete(true);
    request->then(this, [this, id = call.id](const QJsonObject &reply, const Error &error) {
        const auto own = m_calls.constFind(id);
        onOutcome(own != m_calls.cend() && own->isRight(reply, error) ? own : m_calls.cend(), reply, error);
    });
}

IntentLoad::Call Caller::makeCall()
{
    QRandomGenerator &random = m_load.m_random;
    Call call = m_load.echo(Applications[random.bounded(3)]);

    const int kind = random.bounded(200);
    if (kind < 100) {
        call.hasFile = true;
        call.intentName.replace("Echo", "Carry");
        call.params.insert(kind % 4 == 0 ? "write" : "read", m_load.m_files.any(random));
    } else if (kind < 102) {
        call.killable.clear();
        call.intentName = QString("Nobody.%1").arg(call.id);
        call.code = Error::HandlerNotFound;
        call.message = QString("No application handles \"%1\"").arg(call.intentName);
    } else if (kind < 104) {
        call.killable.clear();
        call.intentName = "Forgotten.steady";
        call.code = Error::HandlerFailed;
        call.message =
            "Intent not registered by specified application (its manifest has the intent \"Forgotten.steady\")";
    } else if (kind < 106) { // the library refuses U+0000
        call.killable.clear();
        call.params.insert("text", QString(QChar(QChar::Null)));
        call.code = Error::Failed;
        call.message = "A message cannot hold a text with U+0000";
    } else if (kind < 108) {
        call.params.insert("delay", random.bounded(LongestDelay));
    } else if (kind < 112) {
        call.params.insert("text", QString(random.bounded(LongestText), 'x'));
    }
    return call;
}

void Caller::onReply(const QJsonObject &reply, const Error &error)
{
    const auto answered = m_calls.constFind(reply.value("id").toInt());
    const auto isExpecting = [&](const Call &call) { return !call.isRequest() && call.isRight(reply, error); };
    onOutcome(answered != m_calls.cend() && isExpecting(*answered)
                  ? answered
                  : std::find_if(m_calls.cbegin(), m_calls.cend(), isExpecting),
              reply, error);
}

void Caller::onOutcome(QMap<int, Call>::const_iterator call, const QJsonObject &reply, const Error &error)
{
    if (call == m_calls.cend()) {
        ++m_load.m_counts.unexpected;
        m_load.m_findings.add("one correct outcome for each call",
                              QString("an outcome that no call in flight expects: %1, error %2 \"%3\"")
                                  .arg(toText(reply))
                                  .arg(error.code())
                                  .arg(error.message()));
    } else {
        count(*call, error);
        m_calls.remove(call.key());
    }
    if (m_left == 0 && (m_isImpatient || m_calls.isEmpty()))
        renew();
    fill();
}

void Caller::count(const Call &call, const Error &error)
{
    if (!error)
        ++m_load.m_counts.answered;
    else if (call.code == error.code())
        ++m_load.m_counts.refused;
    else
        ++m_load.m_counts.killed;
    if (!error && call.hasFile)
        m_load.m_auditor.onAnswered(call.id);
}

IntentLoad::IntentLoad(quint32 seed, const SharedFiles &files, Findings &findings)
    : m_random(seed), m_files(files), m_findings(findings),
      m_auditor({"Carry.steady", "Carry.fragile", "Carry.brittle"}, files, findings)
{
    for (int i = 0; i < Callers; ++i)
        m_callers.push_back(std::make_unique<Caller>(*this));
    m_refill.setInterval(RefillInterval);
    connect(&m_refill, &QTimer::timeout, this, [this] {
        for (const auto &caller : m_callers)
            caller->fill();
    });
}

IntentLoad::~IntentLoad() = default;

void IntentLoad::start()
{
    m_isOn = true;
    m_refill.start();
}

void IntentLoad::stop()
{
    m_isOn = false;
    m_refill.stop();
}

QString IntentLoad::outstanding() const
{
    QStringList list;
    for (const auto &caller : m_callers) {
        for (const Call &call : caller->calls())
            list << QString("the outcome of %1 (call %2)").arg(call.intentName).arg(call.id);
    }
    if (m_auditor.outstanding() > 0)
        list << QString("the files of %1 messages").arg(m_auditor.outstanding());
    return list.join(", ");
}

Rows IntentLoad::figures(double seconds) const
{
    qint64 lost = 0;
    for (const auto &caller : m_callers)
        lost += caller->calls().size();
    return Rows{{"intents invoked", QString::number(m_counts.invoked)},
                {"... per second", QString::number(double(m_counts.invoked) / seconds, 'f', 0)},
                {"... with a file", QString::number(m_counts.withFile)},
                {"outcomes: correct reply", QString::number(m_counts.answered)},
                {"outcomes: expected error", QString::number(m_counts.refused)},
                {"outcomes: handler killed", QString::number(m_counts.killed)},
                {"outcomes dropped with their invoker", QString::number(m_counts.dropped)},
                {"outcomes lost", QString::number(lost)},
                {"outcomes repeated or wrong", QString::number(m_counts.unexpected)},
                {"invokers created", QString::number(m_counts.invokers)}}
    + m_auditor.figures();
}

void IntentLoad::wakeApplications()
{
    for (const char *application : Applications)
        m_callers.front()->invoke(echo(application));
}

IntentLoad::Call IntentLoad::echo(const char *application)
{
    Call call;
    call.id = ++m_lastId;
    call.intentName = QString("Echo.") + application;
    call.params = {{"id", call.id},
                   {"text", QString("text %1").arg(m_random.bounded(1000000))},
                   {"list", QJsonArray{1, "two", true}},
                   {"object", QJsonObject{{"number", m_random.generateDouble()}}}};
    if (application != Applications[0])
        call.killable = application;
    return call;
}

#include "intent_load.moc"
