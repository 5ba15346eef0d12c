// SPDX-License-Identifier: BSD-3-Clause
// The task of the application in main.cpp: it receives an item to fetch, and reports its progress.
#include <Corvane/TaskMessaging>
#include <Corvane/TaskProcess>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QTimer>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Corvane::TaskProcess process;
    Corvane::TaskMessaging *channel = process.messaging();
    if (!channel) {
        qCritical("This is a task; the service starts it.");
        return 1;
    }

    int progress = 0;
    QTimer work; // stands for real work
    work.callOnTimeout([&] {
        progress += 50;
        channel->sendMessage({{QStringLiteral("progress"), progress}});
        if (progress == 100) {
            work.stop();
            process.finish(); // ends the process after the application has received all messages
        }
    });
    QObject::connect(channel, &Corvane::TaskMessaging::messageReceived, &work, [&work] { work.start(200); });
    QObject::connect(&process, &Corvane::TaskProcess::clientConnected, channel, [channel] {
        channel->sendMessage({{QStringLiteral("progress"), 0}});
    });
    QObject::connect(&process, &Corvane::TaskProcess::stopRequested, &process, [&process] { process.finish(1); });
    return QCoreApplication::exec();
}
