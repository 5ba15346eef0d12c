// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"

#include "clock.h"
#include "exit_code.h"
#include "help.h"

#include <Corvane/corvane_version.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>
#include <QtCore/QHash>
#include <QtCore/QRegularExpression>
#include <QtCore/QTextStream>

#include <cstdlib>
#include <limits>
#include <optional>

using Corvane::MemoryPressure;

namespace {

[[noreturn]] void show(const QString &text)
{
    QTextStream(stdout) << text << Qt::flush;
    std::exit(EXIT_SUCCESS);
}

[[noreturn]] void fail(const QString &text)
{
    QTextStream(stderr) << "corvane-standin: " << text << "\nTry \"corvane-standin --help\"." << Qt::endl;
    std::exit(ExitCode::Usage);
}

[[noreturn]] void failExpecting(const QString &expected, const QString &found)
{
    fail(found.isEmpty() ? QStringLiteral("Expected %1").arg(expected)
                         : QStringLiteral("Expected %1, found \"%2\"").arg(expected, found));
}

std::optional<int> toNumber(const QString &text)
{
    bool isNumber = false;
    const int number = text.toInt(&isNumber);
    return isNumber ? std::optional(number) : std::nullopt;
}

/// The words of a command after the options.
class Words
{
public:
    explicit Words(const QStringList &list) : m_list(list) { }

    QString next() { return m_next < m_list.size() ? m_list.at(m_next++) : QString(); }
    void end() const
    {
        if (m_next < m_list.size())
            failExpecting(QStringLiteral("nothing more"), m_list.at(m_next));
    }

private:
    const QStringList m_list;
    int m_next = 0;
};

ControlRequest readSetClock(Words &words)
{
    static const QRegularExpression pattern(QStringLiteral("\\A\\+(\\d{1,6})([smhd])\\z"));
    static const QHash<QString, qint64> units{{QStringLiteral("s"), 1000},
                                              {QStringLiteral("m"), 60 * 1000},
                                              {QStringLiteral("h"), 3600 * 1000},
                                              {QStringLiteral("d"), 24 * 3600 * 1000}};
    const QString text = words.next();
    const auto match = pattern.match(text);
    words.end();
    if (Clock::read(text, QDateTime::currentDateTime()).isValid())
        return {{}, QStringLiteral("MoveClockTo"), {text}};
    if (text.startsWith(QLatin1Char('-')))
        fail(QStringLiteral("The clock moves only forward, found \"%1\"").arg(text));
    if (!match.hasMatch())
        failExpecting(QStringLiteral("a duration such as \"+90m\", or a time such as \"03:00\" or "
                                     "\"2030-12-24T18:00\""),
                      text);
    return {{}, QStringLiteral("MoveClock"), {match.captured(1).toLongLong() * units.value(match.captured(2))}};
}

ControlRequest readSetMemory(Words &words)
{
    const QString level = words.next();
    words.end();
    if (level == QLatin1String("auto"))
        return {{}, QStringLiteral("FollowMemoryPressure"), {}};
    auto number = toNumber(level);
    if (level == QLatin1String("normal"))
        number = MemoryPressure::NormalLevel;
    else if (level == QLatin1String("low"))
        number = MemoryPressure::LowLevel;
    else if (level == QLatin1String("critical"))
        number = MemoryPressure::CriticalLevel;
    if (!number)
        failExpecting(QStringLiteral("\"normal\", \"low\", \"critical\", \"auto\" or a number from %1 to %2")
                          .arg(std::numeric_limits<int>::min())
                          .arg(std::numeric_limits<int>::max()),
                      level);
    return {{}, QStringLiteral("SetMemoryLevel"), {*number}};
}

ControlRequest readSetState(Words &words)
{
    static const QHash<QString, uint> states{{QStringLiteral("foreground"), Corvane::ForegroundState},
                                             {QStringLiteral("background"), Corvane::BackgroundState},
                                             {QStringLiteral("suspended"), Corvane::SuspendedState}};
    const QString id = words.next();
    if (id.isEmpty())
        failExpecting(QStringLiteral("the id of an application"), id);
    const QString state = words.next();
    if (!states.contains(state))
        failExpecting(QStringLiteral("\"foreground\", \"background\" or \"suspended\""), state);
    words.end();
    return {{}, QStringLiteral("SetApplicationState"), {id, states.value(state)}};
}

ControlRequest readSet(Words &words)
{
    const QString subject = words.next();
    if (subject == QLatin1String("clock"))
        return readSetClock(words);
    if (subject == QLatin1String("memory"))
        return readSetMemory(words);
    if (subject == QLatin1String("state"))
        return readSetState(words);
    failExpecting(QStringLiteral("\"memory\", \"clock\" or \"state\""), subject);
}

ControlRequest readApplication(const QString &member, Words &words)
{
    const QString id = words.next();
    if (id.isEmpty())
        failExpecting(QStringLiteral("the id of an application"), id);
    words.end();
    return {{}, member, {id}};
}

StatusOptions::Format readListed(Words &words)
{
    static const QHash<QString, StatusOptions::Format> formats{
        {QStringLiteral("applications"), StatusOptions::Applications},
        {QStringLiteral("intents"), StatusOptions::Intents},
        {QStringLiteral("tasks"), StatusOptions::Tasks}};
    const QString word = words.next();
    if (!formats.contains(word))
        failExpecting(QStringLiteral("\"applications\", \"intents\" or \"tasks\""), word);
    words.end();
    return formats.value(word);
}

/// The name in a record for a command.
QString defaultName(const QString &program)
{
    static const QRegularExpression invalid(QStringLiteral("[^A-Za-z0-9._-]|\\A[.-]"));
    return QFileInfo(program).fileName().left(40).replace(invalid, QStringLiteral("_"));
}

RunOptions readRun(const QCommandLineParser &parser)
{
    RunOptions options;
    options.manifests = parser.values(QStringLiteral("manifests"));
    options.applicationId = parser.value(QStringLiteral("as"));
    options.busProgram = parser.value(QStringLiteral("bus-program"));
    options.verbose = parser.isSet(QStringLiteral("verbose"));
    options.timestamps = parser.isSet(QStringLiteral("timestamps"));
    options.raw = parser.isSet(QStringLiteral("raw"));
    options.watch = parser.isSet(QStringLiteral("watch"));
    options.command = parser.positionalArguments();
    const QString name = parser.value(QStringLiteral("name"));
    static const QRegularExpression namePattern(QStringLiteral("\\A[A-Za-z0-9_][A-Za-z0-9._-]{0,39}\\z"));
    if (parser.isSet(QStringLiteral("name")) && !namePattern.match(name).hasMatch())
        fail(QStringLiteral("--name: expected at most 40 of the characters A-Z a-z 0-9 _ . -, found \"%1\"").arg(name));
    const QString startTimeout = parser.value(QStringLiteral("start-timeout"));
    if (!startTimeout.isEmpty()) {
        options.startTimeout = toNumber(startTimeout).value_or(0);
        if (options.startTimeout <= 0)
            fail(QStringLiteral("--start-timeout: expected milliseconds, found \"%1\"").arg(startTimeout));
    }
    if (options.command.value(0).isEmpty())
        fail(QStringLiteral("Expected a command to run"));
    options.name = name;
    options.defaultName = defaultName(options.command.first());
    return options;
}

} // namespace

CommandLine readCommandLine(const QStringList &arguments)
{
    const QCommandLineOption help(QStringLiteral("help"));
    const QCommandLineOption version(QStringLiteral("version"));
    const QCommandLineOption name(QStringLiteral("name"), {}, QStringLiteral("NAME"));
    const QCommandLineOption as(QStringLiteral("as"), {}, QStringLiteral("ID"));
    const QList<QCommandLineOption> runOptions{
        {QStringLiteral("manifests"), {}, QStringLiteral("DIR")},
        {QStringLiteral("start-timeout"), {}, QStringLiteral("MS")},
        {QStringLiteral("bus-program"), {}, QStringLiteral("PATH"), QStringLiteral("dbus-daemon")},
        QCommandLineOption(QStringLiteral("verbose")),
        QCommandLineOption(QStringLiteral("timestamps")),
        QCommandLineOption(QStringLiteral("raw")),
        QCommandLineOption(QStringLiteral("watch")),
        as,
    };
    static const QHash<QString, QList<QCommandLineOption>> commands{
        {QStringLiteral("run"), runOptions},
        {QStringLiteral("exec"), {as}},
        {QStringLiteral("shell"), {as}},
        {QStringLiteral("status"), {QCommandLineOption(QStringLiteral("json"))}},
        {QStringLiteral("list"), {}},
        {QStringLiteral("monitor"), {QCommandLineOption(QStringLiteral("timestamps"))}},
        {QStringLiteral("reload"), {}},
        {QStringLiteral("set"), {}},
        {QStringLiteral("start"), {}},
        {QStringLiteral("stop"), {}},
    };

    const QString command = arguments.value(1);
    const bool isCommand = commands.contains(command);
    QCommandLineParser parser;
    parser.addOptions({help, version});
    QStringList rest = arguments;
    if (isCommand) {
        rest.removeAt(1);
        parser.addOption(name);
        parser.addOptions(commands.value(command));
        // Further options belong to the command that is run; a level of "set memory" may be negative.
        if (QStringList{QStringLiteral("run"), QStringLiteral("exec"), QStringLiteral("set")}.contains(command))
            parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    }
    if (!parser.parse(rest))
        fail(parser.errorText());
    if (parser.isSet(help))
        show(QString::fromLatin1(Help));
    if (parser.isSet(version))
        show(QStringLiteral("corvane-standin %1.%2.%3\n")
                 .arg(CORVANE_VERSION_MAJOR)
                 .arg(CORVANE_VERSION_MINOR)
                 .arg(CORVANE_VERSION_PATCH));
    if (!isCommand)
        failExpecting(QStringLiteral("a command"), parser.positionalArguments().value(0));
    if (command == QLatin1String("run"))
        return readRun(parser);

    Words words(parser.positionalArguments());
    if (command == QLatin1String("exec") || command == QLatin1String("shell")) {
        JoinOptions options{parser.value(name), parser.value(as), parser.positionalArguments()};
        if (command == QLatin1String("shell")) {
            words.end();
            options.command = QStringList(qEnvironmentVariable("SHELL", QStringLiteral("/bin/sh")));
        }
        if (options.command.value(0).isEmpty())
            fail(QStringLiteral("Expected a command to run"));
        return options;
    }
    if (command == QLatin1String("list"))
        return StatusOptions{parser.value(name), readListed(words)};
    if (command == QLatin1String("status") || command == QLatin1String("monitor")) {
        words.end();
        if (command == QLatin1String("monitor"))
            return MonitorOptions{parser.value(name), parser.isSet(QStringLiteral("timestamps"))};
        return StatusOptions{parser.value(name),
                             parser.isSet(QStringLiteral("json")) ? StatusOptions::Json : StatusOptions::Text};
    }
    ControlRequest request;
    if (command == QLatin1String("reload")) {
        words.end();
        request.member = QStringLiteral("ReloadManifests");
    } else if (command == QLatin1String("set"))
        request = readSet(words);
    else
        request = readApplication(command == QLatin1String("start") ? QStringLiteral("StartApplication")
                                                                    : QStringLiteral("StopApplication"),
                                  words);
    request.name = parser.value(name);
    return request;
}
