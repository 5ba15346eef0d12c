// SPDX-License-Identifier: BSD-3-Clause
// Runs a task every night at three, and exchanges messages with it. The task is in task.cpp.
#include <Corvane/RuntimeDispatcher>
#include <Corvane/Task>
#include <Corvane/TaskMessaging>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QTextStream>

using Corvane::Task;
using Corvane::TaskMessaging;

namespace {

template<typename... Parts>
void say(const Parts &...parts)
{
    QString text;
    (QDebug(&text) << ... << parts);
    QTextStream(stdout) << "sync: " << text.trimmed() << Qt::endl;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Task task(QStringLiteral("fetch"));
    task.withSchedule(Corvane::Schedule::dailyAt({3, 0})).withIpcSocket(true);

    const auto talk = [&task] {
        auto *channel = new TaskMessaging(task.socketPath(), &task);
        QObject::connect(channel, &TaskMessaging::messageReceived, &task, [channel](const QJsonObject &message) {
            say("the task says", message);
            if (message.value(QLatin1String("progress")) == 100)
                delete channel; // before the task closes its end, which would be logged as an error
        });
        channel->sendMessage({{QStringLiteral("fetch"), QStringLiteral("news")}});
    };
    QObject::connect(&task, &Task::stateChanged, &task, [talk](Task::State state) {
        say("the task is", state);
        if (state == Task::Running)
            talk();
    });
    task.start([](const Corvane::Error &error) { say("the service has answered", error); });

    if (const Corvane::Error error = Corvane::RuntimeDispatcher::instance()->startService())
        say("no bus name:", error);
    return QCoreApplication::exec();
}
