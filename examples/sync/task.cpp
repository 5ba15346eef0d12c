// SPDX-License-Identifier: BSD-3-Clause
// The task of the application in main.cpp: it receives an item to fetch, and reports its progress.
#include <Corvane/RuntimeDispatcher>
#include <Corvane/TaskMessaging>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>

using Corvane::RuntimeDispatcher;
using Corvane::TaskMessaging;

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();

    dispatcher->onApplicationStarted([] {
        QTextStream(stderr) << "This is a task; the service starts it." << Qt::endl;
        std::exit(1);
    });

    TaskMessaging channel(dispatcher->localServerSocket());
    int progress = 0;
    QTimer work; // stands for real work
    QObject::connect(&work, &QTimer::timeout, &channel, [&channel, &work, &progress] {
        progress += 50;
        channel.sendMessage({{QStringLiteral("progress"), progress}});
        if (progress < 100)
            return;
        channel.sendMessage({{QStringLiteral("done"), true}});
        work.stop();
    });
    QObject::connect(&channel, &TaskMessaging::messageReceived, &work, [&work, &progress](const QJsonObject &message) {
        QTextStream(stdout) << "task: I am to fetch " << message.value(QLatin1String("fetch")).toString() << Qt::endl;
        progress = 0;
        work.start(200);
    });
    return QCoreApplication::exec();
}
