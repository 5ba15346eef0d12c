// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "generate.h"
#include "output.h"

#include <Corvane/meta_types.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTextCodec>

#include <cstdio>

int main(int argc, char **argv)
{
    // Names and texts are UTF-8 in every locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    // A reply of several lines is one write on a terminal too, where other programs write between lines.
    std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    QStringList arguments; // all of them: QCoreApplication removes some that belong to a command
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromUtf8(argv[i]));

    if (arguments.value(1) == QLatin1String("--generate")) { // used by the build
        const QString text = Generate::file(arguments.value(2));
        Output::printRaw(text);
        return text.isEmpty() ? UsageError : 0;
    }
    int exitCode = 0;
    const auto invocation = readCommandLine(arguments, &exitCode);
    if (!invocation)
        return exitCode;
    const QCoreApplication application(argc, argv);
    // Qt destroys its list of types after the bus connection, whose thread uses it, because the list is created first.
    Corvane::registerMetaTypes();
    return invocation->command->run(*invocation);
}
