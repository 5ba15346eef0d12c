// SPDX-License-Identifier: BSD-3-Clause
#include "service_peer.h"

#include "run_until.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);

QString rootPath()
{
    return '/' + QString(Root).replace('.', '/');
}

/// Makes a call on the library's connection, and handles all messages before its reply. Returns false if it fails.
bool finishes(const QDBusMessage &message)
{
    const QDBusPendingCallWatcher call(QDBusConnection::sessionBus().asyncCall(message)); // wakes the event loop
    if (!runUntil([&call] { return call.isFinished(); }) || call.isError())
        return false;
    QCoreApplication::processEvents();
    return true;
}

QStringList strings(const QJsonValue &array)
{
    QStringList list;
    const QJsonArray elements = array.toArray();
    for (const auto &element : elements)
        list << element.toString();
    return list;
}

QJsonObject merged(QJsonObject object, const QJsonObject &more)
{
    for (auto member = more.begin(); member != more.end(); ++member)
        object.insert(member.key(), member.value());
    return object;
}

} // namespace

ServicePeer::ServicePeer()
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process, [this] { read(); });
    start();
}

ServicePeer::~ServicePeer()
{
    m_process.closeWriteChannel(); // the peer exits at the end of its input
    if (!m_process.waitForFinished(Patience))
        qFatal("The peer does not end");
}

void ServicePeer::start()
{
    m_process.start(CORVANE_PYTHON, {CORVANE_PEER, Root});
    m_results.remove(0);
    wait(0);
}

void ServicePeer::kill()
{
    m_process.kill();
    if (!m_process.waitForFinished(Patience))
        qFatal("The peer does not end");
}

QStringList ServicePeer::calls()
{
    flush(true);
    return m_calls;
}

QStringList ServicePeer::takeCalls()
{
    flush(true);
    QStringList calls;
    calls.swap(m_calls);
    return calls;
}

QStringList ServicePeer::descriptors()
{
    flush(true);
    return m_descriptors;
}

void ServicePeer::answer(const QString &body, const QString &member, const QJsonObject &more)
{
    request("answers", {{"answer", merged({{"body", body}}, more)}, {"member", member}});
}

void ServicePeer::answerError(const QString &name, const QString &body, const QString &member)
{
    request("answers", {{"answer", QJsonObject{{"error", name}, {"body", body}}}, {"member", member}});
}

void ServicePeer::echo()
{
    request("answers", {{"answer", QJsonObject{{"echo", true}}}});
}

void ServicePeer::hold(bool on)
{
    request("hold", {{"on", on}});
}

void ServicePeer::release(int index, const QString &body, const QJsonObject &more)
{
    request("release", {{"index", index}, {"answer", merged({{"body", body}}, more)}});
}

void ServicePeer::releaseError(int index, const QString &name)
{
    request("release", {{"index", index}, {"answer", QJsonObject{{"error", name}}}});
}

int ServicePeer::beginCall(const QString &member, const QString &body, const QJsonObject &more)
{
    const QJsonObject arguments{
        {"destination", QString::fromUtf8(qgetenv("HALVIR_APP_INSTANCE_ID"))},
        {"path", rootPath() + "/IntentHandler1"},
        {"interface", Root + ".IntentHandler1"},
        {"member", member},
        {"body", body},
    };
    return send("invoke", merged(arguments, more));
}

bool ServicePeer::isFinished(int call)
{
    flush(false);
    return m_results.contains(call);
}

ServicePeer::Reply ServicePeer::finishCall(int call)
{
    const QJsonObject result = wait(call).toObject();
    return {result.value("text").toString(), strings(result.value("descriptors")), result.value("counts").toObject()};
}

ServicePeer::Reply ServicePeer::call(const QString &member, const QString &body, const QJsonObject &more)
{
    return finishCall(beginCall(member, body, more));
}

void ServicePeer::watchSignals(const QString &interface)
{
    request("watch", {{"interface", interface}});
}

QStringList ServicePeer::takeSignals()
{
    flush(true);
    QStringList taken;
    taken.swap(m_signals);
    return taken;
}

void ServicePeer::emitSignal(const QString &object, const QString &interface, const QString &member,
                             const QString &body, const QJsonObject &more)
{
    QJsonObject arguments = more;
    arguments.insert("path", rootPath() + '/' + object);
    arguments.insert("interface", interface);
    arguments.insert("member", member);
    arguments.insert("body", body);
    request("signal", arguments);
    if (!m_isEventLoopBlocked && !busRoundTrip())
        qFatal("The bus does not answer");
}

bool ServicePeer::survivesSending(const QString &body)
{
    return request("survives", {{"body", body}}).toBool();
}

void ServicePeer::ownServiceName(bool on)
{
    request("own", {{"on", on}});
}

void ServicePeer::claimName(const QString &name)
{
    request("claim", {{"name", name}});
}

bool ServicePeer::hasOwner(const QString &name)
{
    return request("owner", {{"name", name}}).toBool();
}

bool ServicePeer::busRoundTrip()
{
    return finishes(QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                   "org.freedesktop.DBus", "GetId"));
}

bool ServicePeer::roundTrip()
{
    if (!finishes(QDBusMessage::createMethodCall(Root, rootPath() + "/Test", Root + ".Test", "RoundTrip")))
        return false;
    flush(false);
    QCoreApplication::processEvents();
    return true;
}

void ServicePeer::waitUntilRead()
{
    request("reach", {{"destination", QDBusConnection::sessionBus().baseService()}});
}

int ServicePeer::send(const QString &request, QJsonObject arguments)
{
    arguments.insert("id", ++m_lastId);
    arguments.insert("request", request);
    m_process.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
    return m_lastId;
}

QJsonValue ServicePeer::wait(int id)
{
    while (m_isEventLoopBlocked && !m_results.contains(id) && m_process.waitForReadyRead(Patience)) { }
    if (!m_isEventLoopBlocked)
        runUntil([this, id] { return m_results.contains(id) || m_process.state() == QProcess::NotRunning; });
    if (!m_results.contains(id))
        qFatal("The peer does not answer");
    return m_results.value(id);
}

QJsonValue ServicePeer::request(const QString &name, const QJsonObject &arguments)
{
    const int id = send(name, arguments);
    wait(id);
    return m_results.take(id);
}

/// Reads the reports of all messages that the peer has received, also after it was killed.
void ServicePeer::flush(bool throughTheBus)
{
    if (m_process.state() != QProcess::NotRunning)
        request("ping", {{"bus", throughTheBus}});
}

void ServicePeer::read()
{
    while (m_process.canReadLine()) {
        const QJsonObject line = QJsonDocument::fromJson(m_process.readLine()).object();
        if (line.contains("call")) {
            m_calls << line.value("call").toString();
            m_descriptors = strings(line.value("descriptors"));
        } else if (line.contains("signal")) {
            m_signals << line.value("signal").toString();
        } else {
            m_results.insert(line.value("id").toInt(), line.value("result"));
        }
    }
}
