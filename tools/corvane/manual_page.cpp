// SPDX-License-Identifier: BSD-3-Clause
// The manual page, in mdoc(7).
#include "generate.h"

#include <QtCore/QStringList>

namespace Generate {

namespace {

constexpr int LineWidth = 70; // without escapes

QString escaped(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\e"));
    text.replace(QLatin1Char('-'), QStringLiteral("\\-"));
    return text;
}

/// Returns paragraphs. Each sentence begins in a new line.
QString prose(const char *paragraphs)
{
    QString result;
    QString text = QString::fromLatin1(paragraphs);
    text.replace(QStringLiteral(". "), QStringLiteral(".\n"))
        .replace(QStringLiteral("\n\n"), QStringLiteral("\n.Pp\n"));
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &line : lines)
        result += escaped(wrapped(line, LineWidth));
    return result;
}

/// Returns a text as one argument of a macro.
QString quoted(const QString &text)
{
    return QLatin1Char('"') + escaped(text).replace(QLatin1Char('"'), QStringLiteral("\\(dq")) + QLatin1Char('"');
}

QString item(const QString &macros, const char *help)
{
    return QStringLiteral(".It ") + macros + QLatin1Char('\n') + prose(help);
}

QString optionItems(const View<Option> &options)
{
    QString text;
    for (const Option &option : options) {
        QString macros = QStringLiteral("Fl ") + escaped(QLatin1Char('-') + QString::fromLatin1(option.name));
        if (option.valueName)
            macros += QStringLiteral(" Ar ") + QLatin1String(option.valueName);
        text += item(macros, option.help);
    }
    return text;
}

QString list(const QString &items)
{
    return items.isEmpty() ? QString() : QStringLiteral(".Bl -tag -width Ds\n") + items + QStringLiteral(".El\n");
}

QString commandItem(const Command &command)
{
    QString items;
    for (const Argument &argument : command.arguments)
        items += item(QStringLiteral("Ar ") + QLatin1String(argument.name), argument.help);
    items += optionItems(command.options);
    return QStringLiteral(".Ss ") + escaped(QString::fromLatin1(command.name)) + QStringLiteral("\n.Dl ")
        + quoted(QStringLiteral("corvane ") + synopsis(command)) + QStringLiteral("\n.Pp\n") + prose(command.summary)
        + prose(command.description) + list(items);
}

} // namespace

QString manualPage()
{
    QString text = QStringLiteral(R"(.Dd November 22, 2026
.Dt CORVANE 1
.Os
.Sh NAME
.Nm corvane
.Nd use the Corvane application-runtime service from the command line
.Sh SYNOPSIS
.Nm
.Ar command
.Op Ar argument ...
.Op Ar option ...
.Nm
.Fl \-help | Fl \-version
.Sh DESCRIPTION
.Nm
sends and answers intents, controls background tasks, and shows the state of
the service and of its applications.
It uses the service on the session bus, or a stand\-in for it: see
.Xr corvane-standin 1 .
.Pp
Each command has these options:
)");
    text += list(optionItems(CommonOptions));
    for (const Command &command : Commands)
        text += commandItem(command);
    text += QStringLiteral(".Sh ENVIRONMENT\n");
    text += list(item(QStringLiteral("Ev DBUS_SESSION_BUS_ADDRESS"), "The address of the session bus.")
                 + item(QStringLiteral("Ev HALVIR_APP_ID"), "The application of a task, unless --app is given.")
                 + item(QStringLiteral("Ev HALVIR_APP_INSTANCE_ID"), "The bus name that corvane handle claims.")
                 + item(QStringLiteral("Ev NO_COLOR"), "Disables colours on a terminal if it is not empty."));
    text += QStringLiteral(".Sh EXIT STATUS\n");
    QString codes;
    for (const ExitCode &exitCode : ExitCodes)
        codes += item(QString::number(exitCode.code), exitCode.help);
    text += list(codes);
    text += QStringLiteral(".Sh EXAMPLES\n");
    QString separator;
    for (const Command &command : Commands) {
        text += separator + prose(command.summary) + QStringLiteral(".Pp\n.Dl ")
            + quoted(QString::fromLatin1(command.example)) + QLatin1Char('\n');
        separator = QStringLiteral(".Pp\n");
    }
    return text + QStringLiteral(".Sh SEE ALSO\n.Xr corvane-standin 1 ,\n.Xr corvane 7\n");
}

} // namespace Generate
