// SPDX-License-Identifier: BSD-3-Clause
#include "session.h"

#include <Corvane/lifecycle.h>
#include <Corvane/service_monitor.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using Corvane::Error;

namespace Session {

namespace {

int terminationPipe[2];

void writeToPipe(int)
{
    const ssize_t written = ::write(terminationPipe[1], "", 1);
    static_cast<void>(written); // a full pipe is read too
}

QString wayOut(const QString &problem)
{
    return problem
        + QStringLiteral(". Start one with: corvane-standin run -- ... "
                         "(join a running one with: corvane-standin exec -- ...)");
}

} // namespace

Error busError()
{
    // With an instance id, stopService() asks the bus to release a name, and waits for the reply. A process with the id
    // of an application that owns its name does not call this function.
    if (qEnvironmentVariableIsEmpty("HALVIR_APP_INSTANCE_ID"))
        qputenv("HALVIR_APP_INSTANCE_ID", "corvane.tool");
    if (const Error error = Corvane::Lifecycle::instance()->stopService())
        return {
            Error::Failed,
            wayOut(
                QStringLiteral("There is no session bus, or it has closed the connection (%1)").arg(error.message()))};
    return {};
}

Error serviceError()
{
    const Corvane::ServiceMonitor monitor;
    if (const Error error = busError())
        return error;
    // The bus has replied to a later call. Therefore the reply to the monitor is in the event queue.
    QCoreApplication::processEvents();
    if (!monitor.isAvailable())
        return {Error::Failed, wayOut(QStringLiteral("There is no service on the session bus"))};
    return {};
}

Error explained(const Error &error)
{
    if (error != Error::Failed)
        return error;
    const Error reason = serviceError();
    return reason ? reason : error;
}

void onTermination(const std::function<void()> &handler)
{
    if (::pipe2(terminationPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        qFatal("pipe2: %s", qUtf8Printable(qt_error_string()));
    auto *notifier = new QSocketNotifier(terminationPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [handler] {
        char byte = 0;
        while (::read(terminationPipe[0], &byte, 1) == 1)
            handler();
    });
    struct sigaction action = {};
    action.sa_handler = writeToPipe;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace Session
