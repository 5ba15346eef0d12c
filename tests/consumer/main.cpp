// SPDX-License-Identifier: BSD-3-Clause
// Uses every installed header, each by its class name, and every class.
#include <Corvane/Error>
#include <Corvane/IntentsInvoker>
#include <Corvane/RuntimeDispatcher>
#include <Corvane/corvane_version.h>
#include <Corvane/meta_types.h>

#include <QCoreApplication>
#include <QDebug>

static_assert(CORVANE_VERSION_AT_LEAST(1, 0, 0) && !CORVANE_VERSION_AT_LEAST(CORVANE_VERSION_MAJOR + 1, 0, 0));

int main(int argc, char **argv)
{
    qputenv("HALVIR_APP_ID", "consumer");
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    QCoreApplication application(argc, argv);
    Corvane::registerMetaTypes();

    auto *dispatcher = Corvane::RuntimeDispatcher::instance();
    if (dispatcher->applicationId() != QStringLiteral("consumer"))
        qFatal("The dispatcher does not know its application id");
    if (dispatcher->startService().code() != Corvane::Error::Failed)
        qFatal("Claiming a name without a bus should fail");
    delete dispatcher;

    const QUrl uri = Corvane::IntentsInvoker::intentToUri(QStringLiteral("Greet"), {}, {});
    if (uri.toString() != QStringLiteral("intent://#Intent;name=Greet;end"))
        qFatal("Unexpected intent URI: %s", qUtf8Printable(uri.toString()));

    Corvane::IntentsInvoker invoker;
    QObject::connect(&invoker, &Corvane::IntentsInvoker::replyReceived, &application,
                     [](const QJsonObject &, const Corvane::Error &error) {
                         QCoreApplication::exit(error.code() == Corvane::Error::Failed ? 0 : 1);
                     });
    invoker.invoke(QStringLiteral("Greet"), {}, {});
    return QCoreApplication::exec();
}
