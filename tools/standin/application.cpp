// SPDX-License-Identifier: BSD-3-Clause
#include "application.h"

#include <Core/environment.h>
#include <Corvane/lifecycle.h>
#include <DBus/names.h>
#include <DBus/pending_call.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusPendingReply>

#include <csignal>

namespace {

const int LongestPing = 2000; // milliseconds

} // namespace

Application::Application(const Manifest &manifest, int startTimeout, const Trace &trace, QObject *parent)
    : QObject(parent), m_manifest(manifest), m_trace(trace)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(startTimeout);
    connect(&m_timer, &QTimer::timeout, this, &Application::onTimeout);
}

void Application::setManifest(const Manifest &manifest)
{
    m_manifest = manifest;
    m_isRemoved = false;
}

qint64 Application::processId() const
{
    if (m_joined)
        return m_joined->processId();
    return m_process ? m_process->processId() : 0;
}

void Application::setState(uint state, const std::function<void(const QString &problem)> &done)
{
    if (m_connection.isEmpty()) {
        done(!isRunning()         ? QStringLiteral("%1 is not running").arg(m_manifest.id)
                 : m_hasBeenReady ? QStringLiteral("%1 has released its bus name").arg(m_instanceId)
                                  : QStringLiteral("%1 has not claimed its bus name").arg(m_instanceId));
        return;
    }
    signal(SIGCONT);
    announce(state);
    if (state != Corvane::SuspendedState) {
        done({});
        return;
    }
    // A reply of the object that handles intents shows that the process has handled all earlier messages.
    const QDBusMessage ping =
        QDBusMessage::createMethodCall(m_connection, Corvane::Names::IntentHandler.path(),
                                       QStringLiteral("org.freedesktop.DBus.Peer"), QStringLiteral("Ping"));
    Corvane::onFinished(QDBusConnection::sessionBus().asyncCall(ping, LongestPing), this,
                        [this, done](const QDBusPendingCall &) {
                            if (m_state == Corvane::SuspendedState)
                                signal(SIGSTOP);
                            done({});
                        });
}

void Application::announce(uint state)
{
    m_state = state;
    Q_EMIT stateChanged(m_instanceId, state);
}

void Application::signal(int number)
{
    if (m_joined)
        m_joined->signal(number);
    else if (m_process && m_process->parent() == this) // a process group of its own
        ::kill(-pid_t(m_process->processId()), number);
    else if (m_process)
        ::kill(pid_t(m_process->processId()), number);
}

/// Begins the next instance.
void Application::begin()
{
    m_hasBeenReady = false;
    m_instanceId = QStringLiteral("%1.instance%2").arg(m_manifest.id).arg(++m_instances);
    m_nameWatcher = std::make_unique<QDBusServiceWatcher>(m_instanceId, QDBusConnection::sessionBus());
    connect(m_nameWatcher.get(), &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) { onNameOwnerChanged(newOwner); });
    // Under load, the process may own its name before the bus receives the watcher's match rule.
    Corvane::onFinished(
        QDBusConnection::sessionBus().interface()->asyncCall(QStringLiteral("GetNameOwner"), m_instanceId),
        m_nameWatcher.get(), [this](const QDBusPendingReply<QString> &owner) {
            if (!owner.isError())
                onNameOwnerChanged(owner.value());
        });
}

void Application::adopt(ChildProcess *process)
{
    m_process = process;
    begin();
    QProcessEnvironment environment = ChildProcess::cleanEnvironment();
    environment.insert(QLatin1String(Core::Environment::ApplicationId), m_manifest.id);
    environment.insert(QLatin1String(Core::Environment::ApplicationInstanceId), m_instanceId);
    process->setProcessEnvironment(environment);

    connect(process, &QProcess::started, this, [this, process] {
        m_trace.write(QStringLiteral("%1 started (process %2)").arg(m_instanceId).arg(process->processId()));
        announce(Corvane::LaunchingState);
    });
    connect(process, &ChildProcess::ended, this, &Application::onChildEnded);
}

QString Application::join(pid_t processId)
{
    if (isRunning())
        return QStringLiteral("%1 is running already").arg(m_instanceId);
    auto *process = new JoinedProcess(processId, this);
    if (!process->isValid()) {
        const QString problem =
            QStringLiteral("The process %1 cannot be followed: %2").arg(processId).arg(qt_error_string());
        delete process;
        return problem;
    }
    m_joined = process;
    begin();
    connect(process, &JoinedProcess::ended, this, [this] {
        m_joined->deleteLater();
        m_joined = nullptr;
        announce(Corvane::StoppedState);
        onEnded(QStringLiteral("has ended"));
    });
    m_trace.write(QStringLiteral("%1 joined (process %2)").arg(m_instanceId).arg(processId));
    announce(Corvane::LaunchingState);
    return {};
}

void Application::whenReady(const Ready &ready)
{
    if (!m_connection.isEmpty()) {
        ready({});
        return;
    }
    m_waiting.append(ready);
    if (!m_timer.isActive())
        m_timer.start(); // for a running instance
    if (!isRunning())
        start();
}

void Application::start()
{
    auto *process = new ChildProcess(ChildProcess::Terminal::Detached, this);
    adopt(process);
    m_timer.start();
    if (!m_trace.isRaw())
        process->setLabel(m_manifest.id);
    process->start(m_manifest.command);
}

void Application::onNameOwnerChanged(const QString &connection)
{
    if (std::exchange(m_connection, connection) == connection || connection.isEmpty())
        return;
    m_hasBeenReady = true;
    announce(Corvane::ForegroundState);
    finishWaiting({});
}

void Application::stop(const std::function<void()> &stopped)
{
    if (!isRunning()) {
        stopped();
        return;
    }
    m_stopping.append(stopped);
    signal(SIGCONT); // a suspended process would not handle SIGTERM
    if (m_process)
        m_process->end();
    else
        m_joined->end();
}

void Application::onTimeout()
{
    const QString problem = m_hasBeenReady
        ? QStringLiteral("%1 has released its bus name, and has not claimed it again within %2 ms")
        : QStringLiteral("%1 has not claimed its bus name within %2 ms (startService() claims it)");
    finishWaiting(problem.arg(m_instanceId).arg(m_timer.interval()));
}

void Application::onChildEnded(const QString &how)
{
    if (!m_process->hasFailedToStart())
        announce(Corvane::StoppedState);
    if (m_process->parent() == this) // not an adopted process
        m_process->deleteLater();
    m_process = nullptr;
    onEnded(how);
}

void Application::onEnded(const QString &how)
{
    m_nameWatcher.reset();
    m_connection.clear();
    const QString text = QStringLiteral("%1 %2").arg(std::exchange(m_instanceId, QString()), how);
    m_trace.write(text);
    const auto stopping = std::exchange(m_stopping, {});
    for (const auto &stopped : stopping)
        stopped();
    if (m_hasBeenReady && !m_waiting.isEmpty())
        start(); // the requests arrived while the instance was ending
    else
        finishWaiting(text);
}

void Application::finishWaiting(const QString &problem)
{
    m_timer.stop();
    const QVector<Ready> waiting = std::exchange(m_waiting, {});
    for (const Ready &ready : waiting)
        ready(problem);
}
