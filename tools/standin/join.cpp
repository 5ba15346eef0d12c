// SPDX-License-Identifier: BSD-3-Clause
#include "join.h"

#include "child_process.h"
#include "complain.h"
#include "exit_code.h"
#include "running_stand_in.h"

#include <Core/environment.h>

#include <QtCore/QFile>

#include <cstdlib>
#include <unistd.h>

int join(const JoinOptions &options)
{
    const RunningStandIn standIn(options.name);
    if (!standIn.problem().isEmpty()) {
        complain(standIn.problem());
        return ExitCode::Bus;
    }
    const QStringList names = QProcessEnvironment::systemEnvironment().keys();
    for (const QString &name : names) {
        if (ChildProcess::isIdentity(name))
            qunsetenv(qPrintable(name));
    }
    standIn.enter();
    if (!options.applicationId.isEmpty()) {
        // The stand-in identifies this process by its connection, and follows its process id.
        const QDBusMessage reply = standIn.call(QStringLiteral("JoinApplication"), {options.applicationId});
        if (reply.type() != QDBusMessage::ReplyMessage) {
            complain(reply.errorMessage());
            return EXIT_FAILURE;
        }
        qputenv(Core::Environment::ApplicationId, options.applicationId.toUtf8());
        qputenv(Core::Environment::ApplicationInstanceId, reply.arguments().value(0).toString().toUtf8());
    }

    QVector<QByteArray> arguments;
    for (const QString &argument : options.command)
        arguments.append(QFile::encodeName(argument));
    QVector<char *> pointers;
    for (QByteArray &argument : arguments)
        pointers.append(argument.data());
    pointers.append(nullptr);
    ::execvp(pointers.first(), pointers.data());
    complain(QStringLiteral("%1 cannot be started: %2").arg(options.command.first(), qt_error_string()));
    return ExitCode::CannotStart;
}
