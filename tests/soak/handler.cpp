// SPDX-License-Identifier: BSD-3-Clause
// An application of the soak: it answers intents with their own parameters, and with the file that they name.
#include <Corvane/RuntimeDispatcher>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

using Corvane::RuntimeDispatcher;

namespace {

void answer(const QJsonObject &params, const RuntimeDispatcher::ReplyFunction &reply)
{
    const int delay = params.value("delay").toInt(); // milliseconds
    if (delay > 0)
        QTimer::singleShot(delay, qApp, [params, reply] { reply(params); });
    else
        reply(params);
}

void answerIncoming(const Corvane::IncomingIntent &intent)
{
    answer(intent.params(), [intent](const QJsonObject &result) { intent.reply(result); });
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();
    const QString echo = "Echo." + dispatcher->applicationId();
    const QString carry = "Carry." + dispatcher->applicationId();

    if (dispatcher->applicationId() == "steady") {
        dispatcher->registerIntent(echo, answer);
        dispatcher->registerIntent(carry, answer);
    } else {
        dispatcher->registerIntentHandler(echo, answerIncoming);
        dispatcher->registerIntentHandler(carry, answerIncoming);
    }
    dispatcher->registerIntentOutputFiles(carry, {"read"}, {"write"});
    if (const Corvane::Error error = dispatcher->startService())
        qFatal("Cannot receive intents: %s", qUtf8Printable(error.message()));
    return QCoreApplication::exec();
}
