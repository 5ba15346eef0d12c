// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"

#include "generate.h"
#include "output.h"

#include <Corvane/corvane_version.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDateTime>

#include <algorithm>
#include <cmath>

namespace {

const QString Separator = QStringLiteral("--");
const QString JsonOption = QStringLiteral("--json");

/// Returns the command with this name, and \a length as the number of its words.
const Command *findCommand(const QStringList &words, int *length)
{
    for (const Command &command : Commands) {
        const QStringList name = QString::fromLatin1(command.name).split(QLatin1Char(' '));
        *length = name.size();
        if (words.mid(0, *length) == name)
            return &command;
    }
    return nullptr;
}

QString unknownCommand(const QStringList &words)
{
    QStringList names;
    for (const Command &command : Commands) {
        const QStringList name = QString::fromLatin1(command.name).split(QLatin1Char(' '));
        const bool isInGroup = name.size() == 2 && name.first() == words.value(0);
        if (isInGroup)
            names.append(name.last());
    }
    if (!names.isEmpty()) {
        const QString expected =
            QStringLiteral("Expected %1 after \"%2\"").arg(names.join(QStringLiteral(" or ")), words.first());
        return words.size() < 2 ? expected : expected + QStringLiteral(", found \"%1\"").arg(words.at(1));
    }
    return words.isEmpty() ? QStringLiteral("Expected a command")
                           : QStringLiteral("There is no command \"%1\"").arg(words.first());
}

bool isInteger(const QString &text)
{
    bool ok = false;
    text.toInt(&ok);
    return ok;
}

/// Returns the expected kind of value if the text is of another kind; otherwise null.
const char *expectedKind(Kind kind, const QString &text)
{
    switch (kind) {
    case Kind::Integer:
        return isInteger(text) ? nullptr : "an integer";
    case Kind::Count:
        return isInteger(text) && text.toInt() > 0 ? nullptr : "a positive integer";
    case Kind::Integers: {
        const QStringList list = text.split(QLatin1Char(','));
        return std::all_of(list.begin(), list.end(), isInteger) ? nullptr : "integers such as \"1,2,3\"";
    }
    case Kind::Seconds: {
        bool ok = false;
        const double seconds = text.toDouble(&ok);
        return ok && seconds >= 0 && seconds <= 2000000 ? nullptr : "seconds from 0 to 2000000";
    }
    case Kind::Date:
        return QDateTime::fromString(text, Qt::ISODate).isValid() ? nullptr : "a date such as \"2030-01-31T08:00\"";
    case Kind::Pair:
        return text.indexOf(QLatin1Char('=')) > 0 ? nullptr : "KEY=VALUE or KEY:=JSON";
    default:
        return nullptr;
    }
}

/// Returns a problem of the values; empty if there is none.
QString problemOf(const Invocation &invocation)
{
    const auto problem = [](const char *expected, const QString &found) {
        return QStringLiteral("Expected %1, found \"%2\"").arg(QLatin1String(expected), found);
    };
    for (const Option &option : invocation.command->options) {
        const QStringList values = invocation.values(option.name);
        for (const QString &value : values) {
            if (const char *expected = expectedKind(option.kind, value))
                return QStringLiteral("--%1: ").arg(QLatin1String(option.name)) + problem(expected, value);
        }
        if (values.size() > 1 && !option.isRepeated)
            return QStringLiteral("--%1 is given twice").arg(QLatin1String(option.name));
    }

    QStringList words = invocation.arguments;
    for (const Argument &argument : invocation.command->arguments) {
        const bool isRest = argument.kind == Kind::CommandLine || argument.kind == Kind::Arguments;
        const QStringList &source = isRest ? invocation.rest : words;
        if (source.isEmpty() && !argument.isOptional)
            return QStringLiteral("Expected %1%2")
                .arg(QLatin1String(isRest ? "-- " : ""), QLatin1String(argument.name));
        const int count = isRest ? 0 : argument.isRepeated ? int(words.size()) : std::min(1, int(words.size()));
        for (int i = 0; i < count; ++i) {
            if (const char *expected = expectedKind(argument.kind, words.first()))
                return problem(expected, words.first());
            words.removeFirst();
        }
    }
    if (!words.isEmpty())
        return QStringLiteral("Expected nothing more, found \"%1\"").arg(words.first());
    return {};
}

} // namespace

std::optional<Invocation> readCommandLine(QStringList arguments, int *exitCode)
{
    const QString program = arguments.takeFirst();
    const QStringList options = arguments.mid(0, arguments.indexOf(Separator)); // -1: all
    Output::setJson(options.contains(JsonOption));
    while (arguments.value(0) == JsonOption)
        arguments.removeFirst();

    const QString first = arguments.value(0);
    if (first == QLatin1String("--help") || first == QLatin1String("--version")) {
        Output::printRaw(first == QLatin1String("--help") ? Generate::overview()
                                                          : QStringLiteral("corvane %1.%2.%3\n")
                                                                .arg(CORVANE_VERSION_MAJOR)
                                                                .arg(CORVANE_VERSION_MINOR)
                                                                .arg(CORVANE_VERSION_PATCH));
        *exitCode = 0;
        return {};
    }
    Invocation invocation;
    int length = 0;
    invocation.command = findCommand(arguments, &length);
    if (!invocation.command) {
        arguments.removeAll(JsonOption);
        *exitCode = Output::failUsage(unknownCommand(arguments), {});
        return {};
    }
    arguments = arguments.mid(length);

    const auto isRest = [](const Argument &argument) {
        return argument.kind == Kind::CommandLine || argument.kind == Kind::Arguments;
    };
    const View<Argument> expected = invocation.command->arguments;
    const int separator = arguments.indexOf(Separator);
    if (separator >= 0 && std::any_of(expected.begin(), expected.end(), isRest)) {
        invocation.rest = arguments.mid(separator + 1);
        arguments = arguments.mid(0, separator);
    }

    QCommandLineParser parser;
    for (const View<Option> &view : {invocation.command->options, CommonOptions}) {
        for (const Option &option : view)
            parser.addOption(
                {QString::fromLatin1(option.name), {}, QString::fromLatin1(option.valueName ? option.valueName : "")});
    }
    const QString name = QString::fromLatin1(invocation.command->name);
    if (!parser.parse(QStringList(program) + arguments)) {
        *exitCode = Output::failUsage(parser.errorText(), name);
        return {};
    }
    if (parser.isSet(QStringLiteral("help"))) {
        Output::printRaw(Generate::help(*invocation.command));
        *exitCode = 0;
        return {};
    }
    invocation.arguments = parser.positionalArguments();
    for (const Option &option : invocation.command->options) {
        const QString optionName = QString::fromLatin1(option.name);
        if (parser.isSet(optionName))
            invocation.options.insert(optionName,
                                      option.valueName ? parser.values(optionName) : QStringList(QString()));
    }
    const QString problem = problemOf(invocation);
    if (!problem.isEmpty()) {
        *exitCode = Output::failUsage(problem, name);
        return {};
    }
    return invocation;
}
