// SPDX-License-Identifier: BSD-3-Clause
// The task of the soak. It sends each message back, and then as many other messages as "others" in the message. All
// sent messages are numbered.
#include "expected_warnings.h"

#include <Corvane/RuntimeDispatcher>
#include <Corvane/TaskMessaging>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>

using Corvane::TaskMessaging;

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
        if (!isExpectedWarning(text))
            QTextStream(stderr) << "corvane-soak-task: " << text << Qt::endl;
    });

    TaskMessaging channel(Corvane::RuntimeDispatcher::instance()->localServerSocket());
    int sent = 0;
    QObject::connect(&channel, &TaskMessaging::messageReceived, &channel, [&channel, &sent](QJsonObject message) {
        const int others = message.value("others").toInt();
        message.insert("number", sent++);
        channel.sendMessage(message);
        for (int i = 0; i < others; ++i)
            channel.sendMessage({{"number", sent++}});
    });
    return QCoreApplication::exec();
}
