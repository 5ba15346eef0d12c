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

// The announced properties that do not come from the description
const QString NextRun = QStringLiteral("NextRun");
const QString LastRun = QStringLiteral("LastRun");
const QString LastExitCode = QStringLiteral("LastExitCode");
const QString LastSignal = QStringLiteral("LastSignal");
const QString Runs = QStringLiteral("Runs");

QString text(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODate);
}

/// Returns the first time of the schedule that is not before \a earliest, or \a earliest if there is no schedule.
QDateTime scheduledTime(const QVariantMap &description, const QDateTime &earliest)
{
    const Calendar calendar(description.value(Keys::Schedule));
    return calendar.isEmpty() ? earliest : calendar.nextAfter(earliest.addMSecs(-1));
}

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

void BackgroundTask::setManifest(const TaskManifest &manifest)
{
    m_manifest = manifest;
    m_isRemoved = false;
}

void BackgroundTask::remove()
{
    m_isRemoved = true;
    m_due = {};
    setState(m_process ? m_state : Stopped);
    check();
}

QString BackgroundTask::name() const
{
    return Core::qualifiedTaskName(m_applicationId, m_manifest.id);
}

QVariantMap BackgroundTask::properties() const
{
    QVariantMap map = m_lastRuns;
    if (m_due.isValid())
        map.insert(NextRun, text(m_due));
    for (const QString &key : {Keys::Autostart, Keys::CreateIpcSocket, Keys::Interval, Keys::Priority,
                               Keys::RunningTime, Keys::StartDelay}) {
        const auto value = m_description.find(key);
        if (value != m_description.end()
            && (value->userType() == QMetaType::Int || value->userType() == QMetaType::Bool))
            map.insert(value.key(), *value);
    }
    return map;
}

bool BackgroundTask::start(const QStringList &arguments, const QVariantMap &properties)
{
    const QDateTime startTime = QDateTime::fromString(properties.value(Keys::StartTime).toString(), Qt::ISODate);
    const QDateTime now = m_clock.now();
    const QDateTime earliest = (startTime.isValid() ? std::max(now, startTime) : now)
                                   .addSecs(std::max(0, properties.value(Keys::StartDelay).toInt()));
    const QDateTime due = scheduledTime(properties, earliest);
    if (!due.isValid())
        return false;
    m_arguments = arguments;
    m_description = properties;
    plan(due);
    setState(Waiting);
    check();
    return true;
}

void BackgroundTask::stop(bool force)
{
    m_due = {};
    m_description.clear();
    if (m_process && force)
        m_process->kill();
    else if (m_process)
        m_process->terminate();
    setState(m_process ? m_state : Stopped); // a running process has no next run
}

/// Sets the time of the next run; invalid if there is none.
void BackgroundTask::plan(const QDateTime &due)
{
    m_due = due;
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
    const int interval = m_description.value(Keys::Interval).toInt();
    m_due = {};
    if (!Calendar(m_description.value(Keys::Schedule)).isEmpty())
        plan(scheduledTime(m_description, now.addMSecs(60000 - now.time().msecsSinceStartOfDay() % 60000)));
    else if (interval > 0)
        plan(now.addSecs(interval));

    QProcessEnvironment environment = ChildProcess::cleanEnvironment();
    environment.insert(QLatin1String(Environment::ApplicationId), m_applicationId);
    environment.insert(QLatin1String(Environment::ApplicationInstanceId),
                       QStringLiteral("%1.instance%2").arg(name()).arg(++m_runs));
    m_lastRuns.insert(LastRun, text(now));
    m_lastRuns.insert(Runs, m_runs);
    environment.insert(QLatin1String(Environment::TaskId), m_manifest.id);

    auto *process = new ChildProcess(ChildProcess::Terminal::Detached, this);
    std::unique_ptr<TaskSocket> socket;
    if (m_description.value(Keys::CreateIpcSocket).toBool()) {
        socket = std::make_unique<TaskSocket>(socketPath());
        if (socket->descriptor() >= 0)
            environment.insert(QLatin1String(Environment::TaskSocket), QString::number(socket->descriptor()));
        else
            m_trace.report(QStringLiteral("%1 gets no socket: %2").arg(name(), socket->problem()));
        process->setInherited(socket->descriptor());
    }
    process->setProcessEnvironment(environment);
    if (!m_trace.isRaw())
        process->setLabel(name());
    process->setNiceness(m_description.value(Keys::Priority).toInt());

    connect(process, &ChildProcess::ended, this, &BackgroundTask::onEnded);
    connect(process, &QProcess::started, this, [this, process] {
        m_trace.write(QStringLiteral("%1 runs (process %2)").arg(name()).arg(process->processId()));
        const int runningTime = m_description.value(Keys::RunningTime).toInt();
        m_deadline = runningTime > 0 ? m_clock.now().addSecs(runningTime) : QDateTime();
        setState(Running);
    });
    m_process = process;
    process->start(m_manifest.command + m_arguments);
}

void BackgroundTask::onEnded(const QString &how)
{
    const QString line = QStringLiteral("%1 %2").arg(name(), how);
    if (m_process->hasFailedToStart())
        m_trace.report(line); // the caller of Start has got a reply
    else
        m_trace.write(line);
    m_lastRuns.remove(LastExitCode);
    m_lastRuns.remove(LastSignal);
    if (m_process->exitStatus() == QProcess::CrashExit)
        m_lastRuns.insert(LastSignal, m_process->exitCode());
    else
        m_lastRuns.insert(LastExitCode, m_process->shellExitCode());
    m_process->deleteLater();
    m_process = nullptr;
    m_deadline = {};
    QFile::remove(socketPath()); // in case that the process did not remove it
    setState(m_due.isValid() ? Waiting : Stopped);
    QTimer::singleShot(0, this, &BackgroundTask::check); // the next run may be overdue
}

void BackgroundTask::setState(State state)
{
    const bool isNewState = std::exchange(m_state, state) != state;
    const QVariantMap current = properties();
    if (std::exchange(m_announced, current) != current || isNewState)
        Q_EMIT changed();
}

QString BackgroundTask::socketPath() const
{
    return Core::taskSocketPath(m_applicationId, m_manifest.id);
}
