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

/// Starts a task, talks with it, and stops it, again and again. The task answers as task.cpp says.
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
    QSet<int> m_outcomes; ///< of start() and stop(), that are to come
    int m_lastOutcome = 0;
    int m_left = 0; ///< messages that are to be sent in this run
    bool m_isImpatient = false; ///< deletes the channel without waiting for the last messages
    QQueue<QJsonObject> m_sent; ///< and not come back
    int m_othersDue = 0; ///< messages that are to come before the next one of those comes back
    int m_nextNumber = 0;

    qint64 m_runs = 0;
    qint64 m_tasks = 0;
    qint64 m_messagesSent = 0;
    qint64 m_messagesReceived = 0;
    qint64 m_messagesDropped = 0;
    int m_outcomesReceived = 0;
};
