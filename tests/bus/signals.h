// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>
#include <Corvane/task_messaging.h>

#include <message_log.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <algorithm>

/// Has a slot for each signal of the library, with the same parameter types as text, and records the emissions.
class SignalReceiver : public QObject
{
    Q_OBJECT
public:
    using ApplicationState = Corvane::ApplicationState;
    using MemoryLevel = Corvane::MemoryPressure::MemoryLevel;
    using State = Corvane::TaskMessaging::State;
    using Task = Corvane::Task;

    QStringList received;

public Q_SLOTS:
    void onReply(const QJsonObject &reply, const Corvane::Error &error)
    {
        received << QString("reply %1 %2 %3").arg(reply.size()).arg(int(error.code())).arg(error.message());
    }
    void onApplicationState(const QString &appInstanceId, const ApplicationState &state)
    {
        received << QString("application %1 %2").arg(appInstanceId).arg(quint32(state));
    }
    void onLevel(MemoryLevel level) { received << QString("level %1").arg(int(level)); }
    void onTaskState(Task::State state) { received << QString("task %1").arg(int(state)); }
    void onChannelState(State state) { received << QString("channel %1").arg(int(state)); }
    void onMessage(const QJsonObject &message) { received << QString("message %1").arg(message.size()); }
};

/// One object of each class that has signals.
struct Senders
{
    Senders() { log.takeWarnings(); } // the channel cannot connect

    void emitAll()
    {
        Q_EMIT invoker.replyReceived({{"a", 1}}, {Corvane::Error::Failed, "text"});
        Q_EMIT lifecycle->stateChanged("demo.instance1", Corvane::ApplicationState(4294967295));
        Q_EMIT memoryPressure->levelChanged(Corvane::MemoryPressure::CriticalLevel);
        Q_EMIT task.stateChanged(Corvane::Task::Waiting);
        Q_EMIT channel.stateChanged(Corvane::TaskMessaging::Closing);
        Q_EMIT channel.messageReceived({{"a", 1}});
    }
    /// The records of a receiver that is connected to all signals.
    static QStringList emitted()
    {
        return {"reply 1 1 text", "application demo.instance1 4294967295", "level 200", "task 3", "channel 3",
                "message 1"};
    }
    /// Connects all signals with SIGNAL() and SLOT(), and returns the number of successful connections.
    int connectByText(const QObject *receiver, Qt::ConnectionType type) const
    {
        const QVector<QMetaObject::Connection> connections{
            QObject::connect(&invoker, SIGNAL(replyReceived(QJsonObject, Corvane::Error)), receiver,
                             SLOT(onReply(QJsonObject, Corvane::Error)), type),
            QObject::connect(lifecycle, SIGNAL(stateChanged(QString, ApplicationState)), receiver,
                             SLOT(onApplicationState(QString, ApplicationState)), type),
            QObject::connect(memoryPressure, SIGNAL(levelChanged(MemoryLevel)), receiver, SLOT(onLevel(MemoryLevel)),
                             type),
            QObject::connect(&task, SIGNAL(stateChanged(Task::State)), receiver, SLOT(onTaskState(Task::State)), type),
            QObject::connect(&channel, SIGNAL(stateChanged(State)), receiver, SLOT(onChannelState(State)), type),
            QObject::connect(&channel, SIGNAL(messageReceived(QJsonObject)), receiver, SLOT(onMessage(QJsonObject)),
                             type),
        };
        return countValid(connections);
    }
    /// Connects all signals with pointers to member functions.
    int connectByPointer(const SignalReceiver *receiver, Qt::ConnectionType type) const
    {
        const QVector<QMetaObject::Connection> connections{
            QObject::connect(&invoker, &Corvane::IntentsInvoker::replyReceived, receiver, &SignalReceiver::onReply,
                             type),
            QObject::connect(lifecycle, &Corvane::Lifecycle::stateChanged, receiver,
                             &SignalReceiver::onApplicationState, type),
            QObject::connect(memoryPressure, &Corvane::MemoryPressure::levelChanged, receiver, &SignalReceiver::onLevel,
                             type),
            QObject::connect(&task, &Corvane::Task::stateChanged, receiver, &SignalReceiver::onTaskState, type),
            QObject::connect(&channel, &Corvane::TaskMessaging::stateChanged, receiver, &SignalReceiver::onChannelState,
                             type),
            QObject::connect(&channel, &Corvane::TaskMessaging::messageReceived, receiver, &SignalReceiver::onMessage,
                             type),
        };
        return countValid(connections);
    }

    static int countValid(const QVector<QMetaObject::Connection> &connections)
    {
        return int(std::count_if(connections.begin(), connections.end(),
                                 [](const QMetaObject::Connection &connection) { return bool(connection); }));
    }

    MessageLog log;
    Corvane::Lifecycle *const lifecycle = Corvane::Lifecycle::instance();
    Corvane::IntentsInvoker invoker;
    Corvane::MemoryPressure *const memoryPressure = Corvane::MemoryPressure::instance();
    Corvane::Task task{"sync"};
    Corvane::TaskMessaging channel{"/nonexistent/task.socket"};
};
