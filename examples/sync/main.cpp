// SPDX-License-Identifier: BSD-3-Clause
// Runs a task every night at three, and exchanges messages with it. The task is in task.cpp.
#include <Corvane/RuntimeDispatcher>
#include <Corvane/Task>
#include <Corvane/TaskMessaging>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QTextStream>

#include <memory>

using Corvane::Task;
using Corvane::TaskMessaging;

namespace {

void say(const QString &text)
{
    QTextStream(stdout) << "sync: " << text << Qt::endl;
}

class Sync : public QObject
{
    Q_OBJECT
public:
    Sync()
    {
        m_task.withSchedule(Corvane::Schedule::dailyAt({3, 0})).withIpcSocket(true);
        connect(&m_task, &Task::stateChanged, this, &Sync::onStateChanged);
        m_task.start([](const Corvane::Error &error) {
            say(error ? QStringLiteral("The task was refused: %1").arg(error.message())
                      : QStringLiteral("The service has accepted the task"));
        });
    }

private:
    void onStateChanged(Task::State state)
    {
        switch (state) {
        case Task::Unknown:
            break;
        case Task::Waiting:
            say(QStringLiteral("The task waits for its time"));
            if (m_isDone)
                m_task.stop(); // cancels the schedule
            break;
        case Task::Running:
            say(QStringLiteral("The task runs"));
            talk();
            break;
        case Task::Stopped:
            say(QStringLiteral("The task has stopped"));
            break;
        }
    }

    void talk()
    {
        m_channel = std::make_unique<TaskMessaging>(m_task.socketPath());
        connect(m_channel.get(), &TaskMessaging::messageReceived, this, &Sync::onMessage);
        m_channel->sendMessage({{QStringLiteral("fetch"), QStringLiteral("news")}});
    }

    void onMessage(const QJsonObject &message)
    {
        say(QStringLiteral("The task says %1")
                .arg(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact))));
        m_isDone = message.value(QLatin1String("progress")).toInt() == 100;
        if (m_isDone)
            m_channel.reset(); // before the task closes its end, which would be logged as an error
    }

    Task m_task{QStringLiteral("fetch")};
    std::unique_ptr<TaskMessaging> m_channel;
    bool m_isDone = false;
};

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const Sync sync;
    if (const Corvane::Error error = Corvane::RuntimeDispatcher::instance()->startService())
        say(QStringLiteral("No bus name: %1").arg(error.message()));
    return QCoreApplication::exec();
}

#include "main.moc"
