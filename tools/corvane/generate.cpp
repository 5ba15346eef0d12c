// SPDX-License-Identifier: BSD-3-Clause
#include "generate.h"

#include <QtCore/QStringList>

namespace Generate {

namespace {

constexpr int Width = 80;

QString row(const QString &name, const char *help, int column)
{
    const QString head = QStringLiteral("  ") + name;
    const bool isLong = head.size() + 2 > column;
    return (isLong ? head + QLatin1Char('\n') + QString(column, QLatin1Char(' ')) : head.leftJustified(column))
        + wrapped(QString::fromLatin1(help), Width, column);
}

QString nameOf(const Option &option)
{
    const QString name = QLatin1String("--") + QLatin1String(option.name);
    return option.valueName ? name + QLatin1Char(' ') + QLatin1String(option.valueName) : name;
}

} // namespace

QString wrapped(const QString &text, int width, int indentation)
{
    QString result;
    int column = indentation;
    const QStringList words = text.split(QLatin1Char(' '));
    for (const QString &word : words) {
        if (column > indentation && column + 1 + word.size() > width) {
            result += QLatin1Char('\n') + QString(indentation, QLatin1Char(' '));
            column = indentation;
        } else if (column > indentation) {
            result += QLatin1Char(' ');
            ++column;
        }
        result += word;
        column += word.size();
    }
    return result + QLatin1Char('\n');
}

QString synopsis(const Command &command)
{
    QString text;
    QString rest;
    for (const Argument &argument : command.arguments) {
        QString name = QString::fromLatin1(argument.name);
        if (argument.kind == Kind::CommandLine) {
            rest = QStringLiteral(" -- COMMAND [ARGUMENT]...");
            continue;
        }
        if (argument.kind == Kind::Arguments) {
            rest = QStringLiteral(" [-- ARGUMENT...]");
            continue;
        }
        if (argument.isOptional)
            name = QLatin1Char('[') + name + QLatin1Char(']');
        text += QLatin1Char(' ') + name + QLatin1String(argument.isRepeated ? "..." : "");
    }
    return QLatin1String(command.name) + text + QStringLiteral(" [OPTION]...") + rest;
}

QString overview()
{
    QString text = QStringLiteral("Usage: corvane COMMAND [ARGUMENT]... [OPTION]...\n\n"
                                  "Sends and answers intents, controls tasks, and shows the state of the service.\n\n");
    for (const Command &command : Commands)
        text += row(QString::fromLatin1(command.name), command.summary, 20);
    text += QStringLiteral("\nOptions of each command:\n");
    for (const Option &option : CommonOptions)
        text += row(nameOf(option), option.help, 20);
    text += QStringLiteral("\n\"corvane --version\" prints the version.\n\nExit codes:\n");
    for (const ExitCode &exitCode : ExitCodes)
        text += row(QString::number(exitCode.code).rightJustified(2), exitCode.help, 6);
    return text;
}

QString help(const Command &command)
{
    QString text = QStringLiteral("Usage: corvane %1\n\n%2")
                       .arg(synopsis(command), wrapped(QString::fromLatin1(command.summary), Width));
    const QStringList paragraphs = QString::fromLatin1(command.description).split(QStringLiteral("\n\n"));
    for (const QString &paragraph : paragraphs)
        text += QLatin1Char('\n') + wrapped(paragraph, Width);
    text += QLatin1Char('\n');
    for (const Argument &argument : command.arguments)
        text += row(QString::fromLatin1(argument.name), argument.help, 26);
    for (const View<Option> &options : {command.options, CommonOptions}) {
        for (const Option &option : options)
            text += row(nameOf(option), option.help, 26);
    }
    return text
        + QStringLiteral("\nExample: %1\n\nThe exit codes are those of \"corvane --help\".\n")
              .arg(QLatin1String(command.example));
}

QString file(const QString &name)
{
    if (name == QLatin1String("man"))
        return manualPage();
    if (name == QLatin1String("bash"))
        return bashCompletions();
    if (name == QLatin1String("zsh"))
        return zshCompletions();
    return {};
}

} // namespace Generate
