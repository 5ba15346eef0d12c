// SPDX-License-Identifier: BSD-3-Clause
#include "intent_request.h"
#include "intent_request_p.h"

#include <QtCore/QPointer>

#include <limits>
#include <utility>

namespace Corvane {

IntentRequestPrivate::IntentRequestPrivate(const QString &name, IntentRequest *request) : intentName(name), q(request)
{ }

void IntentRequestPrivate::follow(const SentIntent &sent)
{
    m_trace = sent.trace;
    onReply(sent.call, q, [this](const QJsonObject &reply, const Error &error) {
        if (q->isFinished())
            return;
        m_trace.end(error, [&reply] { return sizeOfReply(reply); });
        setResult(error ? IntentRequest::Failed : IntentRequest::Replied, reply, error);
        emitFinished();
    });
}

void IntentRequestPrivate::setTimeout(std::chrono::milliseconds timeout)
{
    if (q->isFinished())
        return;
    m_timer.reset();
    if (timeout.count() < 0 || timeout.count() > std::numeric_limits<int>::max())
        return;
    m_timer = std::make_unique<QTimer>();
    m_timer->setSingleShot(true);
    QObject::connect(m_timer.get(), &QTimer::timeout, q, [this] {
        m_trace.end("timed out");
        setResult(IntentRequest::TimedOut, {}, {Error::Failed, QStringLiteral("The request timed out")});
        emitFinished();
    });
    m_timer->start(timeout);
}

void IntentRequestPrivate::cancel()
{
    if (q->isFinished())
        return;
    m_trace.end("canceled");
    setResult(IntentRequest::Canceled, {}, {Error::Failed, QStringLiteral("The request was canceled")});
    QMetaObject::invokeMethod(
        q, [this] { emitFinished(); }, Qt::QueuedConnection);
}

void IntentRequestPrivate::then(QObject *context, const IntentRequest::Callback &callback)
{
    if (!callback)
        return;
    QObject *const receiver = context ? context : q;
    auto call = [this, callback = callback]() mutable {
        const auto once = std::exchange(callback, {}); // it and its captures may delete the request
        const IntentRequest::Result finalResult = result;
        once(finalResult.reply, finalResult.error);
    };
    if (!m_emitted) {
        QObject::connect(q, &IntentRequest::finished, receiver, call);
        return;
    }
    QMetaObject::invokeMethod(
        receiver,
        [request = QPointer<IntentRequest>(q), call]() mutable {
            if (request)
                call();
        },
        Qt::QueuedConnection);
}

void IntentRequestPrivate::setAutoDelete(bool newAutoDelete)
{
    autoDelete = newAutoDelete;
    if (autoDelete && m_emitted)
        q->deleteLater();
}

void IntentRequestPrivate::setResult(IntentRequest::State state, const QJsonObject &reply, const Error &error)
{
    result = {state, reply, error};
    if (m_timer)
        m_timer->stop();
}

void IntentRequestPrivate::emitFinished()
{
    m_emitted = true;
    const QPointer<IntentRequest> request(q);
    Q_EMIT q->finished();
    if (request && autoDelete)
        request->deleteLater();
}

IntentRequest::IntentRequest(const QString &intentName, QObject *parent)
    : QObject(parent), d(std::make_unique<IntentRequestPrivate>(intentName, this))
{ }

IntentRequest::~IntentRequest() = default;

QString IntentRequest::intentName() const
{
    return d->intentName;
}

IntentRequest::State IntentRequest::state() const
{
    return d->result.state;
}

bool IntentRequest::isFinished() const
{
    return state() != Pending;
}

QJsonObject IntentRequest::reply() const
{
    return d->result.reply;
}

Error IntentRequest::error() const
{
    return d->result.error;
}

IntentRequest::Result IntentRequest::result() const
{
    return d->result;
}

void IntentRequest::setTimeout(std::chrono::milliseconds timeout)
{
    d->setTimeout(timeout);
}

void IntentRequest::cancel()
{
    d->cancel();
}

void IntentRequest::then(QObject *context, const Callback &callback)
{
    d->then(context, callback);
}

bool IntentRequest::autoDelete() const
{
    return d->autoDelete;
}

void IntentRequest::setAutoDelete(bool autoDelete)
{
    d->setAutoDelete(autoDelete);
}

} // namespace Corvane
