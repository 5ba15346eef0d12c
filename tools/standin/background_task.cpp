// SPDX-License-Identifier: BSD-3-Clause
#include "background_task.h"

#include "calendar.h"
#include "task_socket.h"

#include <Core/environment.h>
#include <Core/task_names.h>
#include <DBus/keys.h>

#include <QtCore/QFile>

#include <algorithm>

namespace Environment = Core::Environment;
namespace Keys = Corvane::Keys;

namespace {

const qint64 LongestTimer = 3600000; // milliseconds; QTimer has an upper limit

} // namespace

BackgroundTask::BackgroundTask(const QString &applicationId, const TaskManifest &manifest, const Clock &clock,
                               const Trace &trace, QObject *parent)
    : QObject(parent), m_applicationId(applicationId), m_manifest(manifest), m_clock(clock), m_trace(trace)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &BackgroundTask::check);
    connect(&clock, &Clock::moved, this, &BackgroundTask::check);
}

QString BackgroundTask::name() const
{
    return Core::qualifiedTaskName(m_applicationId, m_manifest.id);
}

QVariantMap BackgroundTask::numbers() const
{
    QVariantMap map;
    for (const QString &key : {Keys::Autostart, Keys::CreateIpcSocket, Keys::Interval, Keys::Priority,
                               Keys::RunningTime, Keys::StartDelay}) {
        const auto value = m_properties.find(key);
        if (value != m_properties.end()
            && (value->userType() == QMetaType::Int || value->userType() == QMetaType::Bool))
            map.insert(value.key(), *value);
    }
    return map;
}

void BackgroundTask::start(const QStringList &arguments, const QVariantMap &properties)
{
    m_arguments = arguments;
    m_properties = properties;
    const QDateTime startTime = QDateTime::fromString(properties.value(Keys::StartTime).toString(), Qt::ISODate);
    const QDateTime now = m_clock.now();
    plan((startTime.isValid() ? std::max(now, startTime) : now)
             .addSecs(std::max(0, properties.value(Keys::StartDelay).toInt())));
    setState(Waiting);
    if (!m_due.isValid())
        setState(Stopped);
    check();
}

void BackgroundTask::stop(bool force)
{
    m_due = {};
    m_properties.clear();
    if (!m_process)
        setState(Stopped);
    else if (force)
        m_process->kill();
    else
        m_process->terminate();
}

/// Computes the start of the next run.
void BackgroundTask::plan(const QDateTime &earliest)
{
    const Calendar calendar(m_properties.value(Keys::Schedule));
    m_due = calendar.isEmpty() ? earliest : calendar.next(earliest);
    m_trace.write(m_due.isValid() ? QStringLiteral("%1 is to run at %2").arg(name(), m_due.toString(Qt::ISODate))
                                  : QStringLiteral("%1 has no time left to run at").arg(name()));
}

/// Handles expired times, and sets the timer for the next one.
void BackgroundTask::check()
{
    const QDateTime now = m_clock.now();
    if (m_process && m_deadline.isValid() && m_deadline <= now) {
        m_trace.write(QStringLiteral("%1 has run for as long as it may").arg(name()));
        m_deadline = {};
        m_process->end();
    }
    if (!m_process && m_due.isValid() && m_due <= now)
        run();

    const QDateTime next = m_process ? m_deadline : m_due;
    if (next.isValid())
        m_timer.start(int(std::clamp<qint64>(m_clock.now().msecsTo(next), 0, LongestTimer)));
    else
        m_timer.stop();
}

void BackgroundTask::run()
{
    const QDateTime now = m_clock.now();
    const int interval = m_properties.value(Keys::Interval).toInt();
    m_due = {};
    if (!Calendar(m_properties.value(Keys::Schedule)).isEmpty())
        plan(now.addMSecs(60000 - now.time().msecsSinceStartOfDay() % 60000)); // from the next minute
    else if (interval > 0)
        plan(now.addSecs(interval));

    QProcessEnvironment environment = ChildProcess::cleanEnvironment();
    environment.insert(QLatin1String(Environment::ApplicationId), m_applicationId);
    environment.insert(QLatin1String(Environment::ApplicationInstanceId),
                       QStringLiteral("%1.instance%2").arg(name()).arg(++m_runs));
    environment.insert(QLatin1String(Environment::TaskId), m_manifest.id);

    auto *process = new ChildProcess(ChildProcess::Terminal::Detached, this);
    std::unique_ptr<TaskSocket> socket;
    if (m_properties.value(Keys::CreateIpcSocket).toBool()) {
        socket = std::make_unique<TaskSocket>(socketPath());
        if (socket->descriptor() >= 0)
            environment.insert(QLatin1String(Environment::TaskSocket), QString::number(socket->descriptor()));
        else
            m_trace.write(QStringLiteral("%1 gets no socket: %2").arg(name(), socket->problem()));
        process->setInherited(socket->descriptor());
    }
    process->setProcessEnvironment(environment);
    process->setNiceness(m_properties.value(Keys::Priority).toInt());

    connect(process, &ChildProcess::ended, this, &BackgroundTask::onEnded);
    connect(process, &QProcess::started, this, [this, process] {
        m_trace.write(QStringLiteral("%1 runs (process %2)").arg(name()).arg(process->processId()));
        const int runningTime = m_properties.value(Keys::RunningTime).toInt();
        m_deadline = runningTime > 0 ? m_clock.now().addSecs(runningTime) : QDateTime();
        setState(Running);
    });
    m_process = process;
    process->start(m_manifest.command + m_arguments);
}

void BackgroundTask::onEnded(const QString &how)
{
    m_trace.write(QStringLiteral("%1 %2").arg(name(), how));
    m_process->deleteLater();
    m_process = nullptr;
    m_deadline = {};
    QFile::remove(socketPath()); // in case that the process did not remove it
    setState(m_due.isValid() ? Waiting : Stopped);
    QTimer::singleShot(0, this, &BackgroundTask::check); // the next run may be overdue
}

void BackgroundTask::setState(State state)
{
    if (std::exchange(m_state, state) != state)
        Q_EMIT stateChanged();
}

QString BackgroundTask::socketPath() const
{
    return Core::taskSocketPath(m_applicationId, m_manifest.id);
}
