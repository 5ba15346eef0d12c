// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "findings.h"
#include "load.h"

#include <Corvane/Task>
#include <Corvane/TaskMessaging>

#include <QtCore/QJsonObject>
#include <QtCore/QQueue>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>

#include <functional>
#include <memory>

/// Starts a task, exchanges messages with it, and stops it, repeatedly. The task is in task.cpp.
class TaskLoad : public Load
{
    Q_OBJECT
public:
    TaskLoad(quint32 seed, Findings &findings);
    ~TaskLoad() override;

    void start() override;
    void stop() override;
    QString outstanding() const override;
    Rows figures(double seconds) const override;

private:
    enum class Phase { Idle, Starting, Talking, Stopping };

    std::function<void(const Corvane::Error &)> expectOutcome(const QString &of);
    void makeTask();
    void run();
    void onStateChanged(Corvane::Task::State state);
    void talk();
    void goOn();
    void onMessage(const QJsonObject &message);
    void endRun();

    QRandomGenerator m_random;
    Findings &m_findings;
    bool m_isOn = false;
    Phase m_phase = Phase::Idle;
    std::unique_ptr<Corvane::Task> m_task;
    std::unique_ptr<Corvane::TaskMessaging> m_channel;
    QSet<int> m_outcomes; ///< The calls of start() and stop() without an outcome yet.
    int m_lastOutcome = 0;
    int m_left = 0; ///< The number of messages to send in this run.
    bool m_isImpatient = false; ///< Delete the channel without waiting for the last messages.
    QQueue<QJsonObject> m_sent; ///< The messages that the task has not sent back.
    int m_othersDue = 0; ///< The number of messages that must arrive before the first of m_sent.
    int m_nextNumber = 0;

    qint64 m_runs = 0;
    qint64 m_tasks = 0;
    qint64 m_messagesSent = 0;
    qint64 m_messagesReceived = 0;
    qint64 m_messagesDropped = 0;
    int m_outcomesReceived = 0;
};
