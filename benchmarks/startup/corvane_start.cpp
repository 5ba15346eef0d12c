// SPDX-License-Identifier: BSD-3-Clause
// Handles an intent, invokes another, and ends at the first reply.
#include "first_reply.h"

#include <process.h>

#include <Corvane/IntentsInvoker>
#include <Corvane/RuntimeDispatcher>

int main(int argc, char **argv)
{
    dieWithParent();
    const QCoreApplication application(argc, argv);
    auto *const dispatcher = Corvane::RuntimeDispatcher::instance();
    dispatcher->registerIntent(QStringLiteral("Greet"),
                               [](const QJsonObject &params, const auto &reply) { reply(params); });
    if (const Corvane::Error error = dispatcher->startService())
        qFatal("%s", qPrintable(error.message()));

    Corvane::IntentsInvoker invoker;
    QObject::connect(&invoker, &Corvane::IntentsInvoker::replyReceived, &invoker,
                     [](const QJsonObject &reply, const Corvane::Error &error) {
                         if (error || reply.size() != 1)
                             qFatal("%s", qPrintable(error.message()));
                         onFirstReply();
                     });
    invoker.invoke(QStringLiteral("bench.echo"), {}, {{QStringLiteral("text"), QStringLiteral("Hello")}});
    return QCoreApplication::exec();
}
