// SPDX-License-Identifier: BSD-3-Clause
#include "task_load.h"

#include <QtCore/QJsonDocument>

using Corvane::Error;
using Corvane::Task;
using Corvane::TaskMessaging;

namespace {

const int LongestRun = 2000; // messages
const int MostAtOnce = 5; // messages that the task has not sent back
const int MostOthers = 10; // messages that the task adds to a message that it sends back
const int LongestText = 30000; // characters; frames of up to 32 KiB are reliable

QString toText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)).left(200);
}

} // namespace

TaskLoad::TaskLoad(quint32 seed, Findings &findings) : m_random(seed), m_findings(findings)
{
    makeTask();
}

TaskLoad::~TaskLoad() = default;

void TaskLoad::start()
{
    m_isOn = true;
    run();
}

void TaskLoad::stop()
{
    m_isOn = false;
    m_left = 0;
    if (m_phase == Phase::Talking)
        goOn();
}

QString TaskLoad::outstanding() const
{
    if (!m_sent.isEmpty())
        return QString("%1 messages from the task").arg(m_sent.size());
    if (!m_outcomes.isEmpty())
        return QString("%1 outcomes of starting or stopping the task").arg(m_outcomes.size());
    return m_phase == Phase::Idle ? QString() : "the start or the end of the task";
}

Rows TaskLoad::figures(double seconds) const
{
    return {{"task runs", QString::number(m_runs)},
            {"task objects and channels created", QString::number(m_tasks + m_runs)},
            {"outcomes of starting and stopping", QString::number(m_outcomesReceived)},
            {"messages to the task", QString::number(m_messagesSent)},
            {"messages from the task", QString::number(m_messagesReceived)},
            {"messages both ways, per second",
             QString::number(double(m_messagesSent + m_messagesReceived) / seconds, 'f', 0)},
            {"messages dropped with their channel", QString::number(m_messagesDropped)}};
}

/// Returns a callback that must be called once, with success, unless the task is deleted first.
std::function<void(const Error &)> TaskLoad::expectOutcome(const QString &of)
{
    const int number = ++m_lastOutcome;
    m_outcomes.insert(number);
    return [this, of, number](const Error &error) {
        ++m_outcomesReceived;
        if (!m_outcomes.remove(number) || error)
            m_findings.add("one successful outcome of " + of,
                           QString("error %1 \"%2\"").arg(error.code()).arg(error.message()));
    };
}

void TaskLoad::makeTask()
{
    m_outcomes.clear(); // the old task drops them
    m_task = std::make_unique<Task>("talk");
    m_task->withIpcSocket(true);
    connect(m_task.get(), &Task::stateChanged, this, &TaskLoad::onStateChanged);
    ++m_tasks;
}

void TaskLoad::run()
{
    if (!m_isOn || m_phase != Phase::Idle)
        return;
    m_phase = Phase::Starting;
    ++m_runs;
    m_left = m_random.bounded(LongestRun);
    m_isImpatient = m_random.bounded(4) == 0;
    m_nextNumber = 0;
    m_task->start(expectOutcome("starting a task"));
    if (m_random.bounded(4) == 0)
        makeTask();
}

void TaskLoad::onStateChanged(Task::State state)
{
    if (state == Task::Running && m_phase == Phase::Starting) {
        talk();
    } else if (state == Task::Stopped && m_phase == Phase::Stopping) {
        m_phase = Phase::Idle;
        m_channel.reset();
        run();
    }
}

void TaskLoad::talk()
{
    m_phase = Phase::Talking;
    m_channel = std::make_unique<TaskMessaging>(m_task->socketPath());
    connect(m_channel.get(), &TaskMessaging::messageReceived, this, &TaskLoad::onMessage);
    if (m_channel->state() != TaskMessaging::Connected)
        m_findings.add("a connected channel to a running task", QString("state %1").arg(m_channel->state()));
    goOn();
}

/// Sends messages until the limit is reached, or ends the run after its last message.
void TaskLoad::goOn()
{
    while (m_left > 0 && m_sent.size() < MostAtOnce) {
        --m_left;
        const int kind = m_random.bounded(100);
        QJsonObject message{{"left", m_left}};
        if (kind < 2)
            message.insert("text", QString(m_random.bounded(LongestText), 'x'));
        else if (kind < 10)
            message.insert("others", m_random.bounded(MostOthers));
        if (!m_channel->sendMessage(message))
            m_findings.add("sendMessage() to succeed while the task runs", "false");
        m_sent.enqueue(message);
        ++m_messagesSent;
    }
    if (m_left == 0 && (m_isImpatient || (m_sent.isEmpty() && m_othersDue == 0)))
        endRun();
}

void TaskLoad::onMessage(const QJsonObject &message)
{
    ++m_messagesReceived;
    QJsonObject expected;
    if (m_othersDue > 0) {
        --m_othersDue;
    } else if (!m_sent.isEmpty()) {
        expected = m_sent.dequeue();
        m_othersDue = expected.value("others").toInt();
    }
    expected.insert("number", m_nextNumber++);
    if (message != expected)
        m_findings.add("each message of the task once and in order",
                       QString("%1 in place of %2").arg(toText(message), toText(expected)));
    if (m_phase == Phase::Talking)
        goOn();
}

void TaskLoad::endRun()
{
    m_phase = Phase::Stopping;
    m_messagesDropped += m_sent.size() + m_othersDue;
    if (m_isImpatient || m_random.bounded(2) == 0)
        m_channel.reset(); // otherwise it is deleted when the task has ended
    m_sent.clear();
    m_othersDue = 0;
    m_task->stop(m_random.bounded(2) == 0 ? Task::StopFlags(Task::Force) : Task::StopFlags(),
                 expectOutcome("stopping a task"));
    if (m_random.bounded(4) == 0)
        makeTask();
}
