// SPDX-License-Identifier: BSD-3-Clause
#include "notice_load.h"

#include <DBus/names.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>

#include <algorithm>
#include <csignal>

namespace Names = Corvane::Names;
using Corvane::Lifecycle;
using Corvane::MemoryPressure;

namespace {

const int FirstLevel = 1; // a level that the stand-in never derives from the kernel
const int LongestPause = 20; // milliseconds between two levels
const int LongestLife = 500; // milliseconds between two kills
const int Applications = 3;

} // namespace

NoticeLoad::NoticeLoad(quint32 seed, Findings &findings) : m_random(seed), m_findings(findings)
{
    m_levelTimer.setSingleShot(true);
    m_killTimer.setSingleShot(true);
    connect(&m_levelTimer, &QTimer::timeout, this,
            [this] { setLevel(m_level == 0 ? FirstLevel : (m_level + 1 + m_random.bounded(1000)) % 1001); });
    connect(&m_killTimer, &QTimer::timeout, this, &NoticeLoad::kill);
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, this, &NoticeLoad::onLevelChanged);
    connect(Lifecycle::instance(), &Lifecycle::stateChanged, this, &NoticeLoad::onStateChanged);
}

void NoticeLoad::start()
{
    m_isOn = true;
    m_levelTimer.start(0);
    m_killTimer.start(LongestLife);
}

void NoticeLoad::stop()
{
    m_isOn = false;
    m_levelTimer.stop();
    m_killTimer.stop();
}

QString NoticeLoad::outstanding() const
{
    if (m_isAwaited)
        return QString("the memory level %1").arg(m_level);
    if (!m_dying.isEmpty())
        return QString("the end of %1, which was killed").arg(m_dying);
    const auto states = m_instances.values();
    const int running = int(std::count(states.cbegin(), states.cend(), Corvane::ForegroundState));
    return running == Applications && states.size() == Applications
        ? QString()
        : QString("%2 of %1 applications run").arg(Applications).arg(running);
}

Rows NoticeLoad::figures(double /*seconds*/) const
{
    return {{"memory levels", QString::number(m_levels)},
            {"states of applications", QString::number(m_changes)},
            {"applications killed", QString::number(m_kills)}};
}

void NoticeLoad::setLevel(int level)
{
    m_level = level;
    m_isAwaited = true;
    QDBusConnection::sessionBus().send(QDBusMessage::createMethodCall(Names::ServiceRoot, Names::StandIn.path(),
                                                                      Names::StandIn.interface, "SetMemoryLevel")
                                       << level);
}

void NoticeLoad::onLevelChanged(MemoryPressure::MemoryLevel level)
{
    if (m_level == FirstLevel && level != FirstLevel)
        return; // a level from before the first SetMemoryLevel()
    if (!std::exchange(m_isAwaited, false) || level != m_level || level != MemoryPressure::instance()->level())
        m_findings.add("one signal for each memory level", QString("%1 after %2").arg(level).arg(m_level));
    ++m_levels;
    if (m_isOn)
        m_levelTimer.start(m_random.bounded(LongestPause));
}

void NoticeLoad::kill()
{
    m_killTimer.start(m_random.bounded(LongestLife));
    if (!m_dying.isEmpty())
        return;
    QStringList victims;
    for (auto i = m_instances.cbegin(); i != m_instances.cend(); ++i) {
        if (*i == Corvane::ForegroundState && !i.key().startsWith("steady."))
            victims << i.key();
    }
    if (victims.isEmpty())
        return;
    const QString victim = victims.at(m_random.bounded(victims.size()));
    const QDBusReply<uint> process = QDBusConnection::sessionBus().interface()->servicePid(victim);
    if (!process.isValid()) {
        m_findings.add("a bus name for each application in the foreground", victim);
        return;
    }
    ::kill(pid_t(process.value()), SIGKILL);
    m_dying = victim;
    ++m_kills;
}

void NoticeLoad::onStateChanged(const QString &instanceId, Corvane::ApplicationState state)
{
    if (instanceId.startsWith("soak."))
        return; // this process
    const auto before = m_instances.value(instanceId, Corvane::UnknownState);
    const bool isRight = (state == Corvane::LaunchingState && before == Corvane::UnknownState)
        || (state == Corvane::ForegroundState && before == Corvane::LaunchingState)
        || (state == Corvane::StoppedState && before == Corvane::ForegroundState);
    if (!isRight)
        m_findings.add("one signal each for an application that is launched, in the foreground and stopped",
                       QString("%1 in state %2 after %3").arg(instanceId).arg(state).arg(before));
    if (state == Corvane::StoppedState && instanceId != m_dying)
        m_findings.add("only killed applications to stop", instanceId);
    if (state == Corvane::StoppedState) {
        m_instances.remove(instanceId);
        m_dying.clear();
    } else {
        m_instances.insert(instanceId, state);
    }
    ++m_changes;
}
