// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"

#include "exit_code.h"

#include <Corvane/corvane_version.h>
#include <Corvane/memory_pressure.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QHash>
#include <QtCore/QRegularExpression>
#include <QtCore/QTextStream>

#include <cstdlib>
#include <optional>

using Corvane::MemoryPressure;

namespace {

const char Help[] = R"(Usage: corvane-standin run [OPTION]... [--] COMMAND [ARGUMENT]...
       corvane-standin set memory normal|low|critical|NUMBER|auto
       corvane-standin set clock +NUMBER(s|m|h|d)
       corvane-standin start ID
       corvane-standin stop ID

Stands in for the application-runtime service while applications are developed.

run starts a session bus of its own with the service on it, runs COMMAND there,
and ends everything that it started when COMMAND ends, or on Ctrl-C. The normal
session bus of the user is not touched.

  --manifests DIR     Applications that the service knows: each *.json file in
                      DIR describes one. May be given several times.
  --as ID             Run COMMAND as the application ID of the manifests.
  --start-timeout MS  How long an application may take to claim its bus name,
                      in milliseconds (default: 10000).
  --bus-program PATH  Program that runs the session bus, started with the options
                      of dbus-daemon (default: dbus-daemon).
  --verbose           Show each message that is routed, one a line, on standard
                      error.

The other commands control the stand-in on whose bus they are run, as from
COMMAND:

set memory gives the memory pressure that the service tells; auto has it follow
the kernel's, as it does at first: critical if all processes had to wait for
memory in at least a tenth of the last ten seconds, low if some had to.
set clock moves on the time by which tasks run, by seconds, minutes, hours or
days, and prints what it is then.
start runs an application, waits until it has claimed its bus name, and prints
its instance id. stop ends an application, and waits until it has ended.

  --help              Show this text.
  --version           Show the version.

An application is described by a manifest such as
  {
      "id": "viewer",
      "name": "Viewer",
      "command": ["./viewer", "--quiet"],
      "intents": ["OpenURI"],
      "tasks": [{"id": "index", "command": ["./indexer"]}]
  }
"name", "intents" and "tasks" may be left out. A task may have "properties",
such as {"Autostart": true, "Interval": 60}, to start with the stand-in. A
program with a '/' in it is found from the manifest's directory, another on the
PATH. It has to stay in the foreground.

Exit codes of run: COMMAND's own, or
   64  wrong command line
   65  wrong manifest
   69  no private bus
  127  COMMAND cannot be started
  128+N  COMMAND, or corvane-standin itself, was ended by signal N
Exit codes of the others:
    0  done
    1  not possible; standard error tells why
   64  wrong command line
   69  no stand-in on the session bus
)";

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

ControlRequest readSetClock(const QStringList &words)
{
    static const QRegularExpression pattern(QStringLiteral("\\A\\+(\\d{1,6})([smhd])\\z"));
    static const QHash<QString, qint64> units{{QStringLiteral("s"), 1000},
                                              {QStringLiteral("m"), 60 * 1000},
                                              {QStringLiteral("h"), 3600 * 1000},
                                              {QStringLiteral("d"), 24 * 3600 * 1000}};
    const auto match = pattern.match(words.value(2));
    if (!match.hasMatch())
        failExpecting(QStringLiteral("how far to move on, such as \"+90m\""), words.value(2));
    if (words.size() > 3)
        failExpecting(QStringLiteral("nothing more"), words.at(3));
    return {QStringLiteral("MoveClock"), {match.captured(1).toLongLong() * units.value(match.captured(2))}};
}

ControlRequest readSet(const QStringList &words)
{
    if (words.value(1) == QLatin1String("clock"))
        return readSetClock(words);
    if (words.value(1) != QLatin1String("memory"))
        failExpecting(QStringLiteral("\"memory\" or \"clock\""), words.value(1));
    const QString level = words.value(2);
    if (words.size() > 3)
        failExpecting(QStringLiteral("nothing more"), words.at(3));
    if (level == QLatin1String("auto"))
        return {QStringLiteral("FollowMemoryPressure"), {}};

    auto number = toNumber(level);
    if (level == QLatin1String("normal"))
        number = MemoryPressure::NormalLevel;
    else if (level == QLatin1String("low"))
        number = MemoryPressure::LowLevel;
    else if (level == QLatin1String("critical"))
        number = MemoryPressure::CriticalLevel;
    if (!number)
        failExpecting(QStringLiteral("\"normal\", \"low\", \"critical\", a number or \"auto\""), level);
    return {QStringLiteral("SetMemoryLevel"), {*number}};
}

ControlRequest readApplication(const QString &member, const QStringList &words)
{
    if (words.size() != 2)
        failExpecting(QStringLiteral("the id of one application"), words.value(2));
    return {member, {words.at(1)}};
}

} // namespace

std::variant<RunOptions, ControlRequest> readCommandLine(const QStringList &arguments)
{
    const QCommandLineOption help(QStringLiteral("help"));
    const QCommandLineOption version(QStringLiteral("version"));
    const QCommandLineOption manifests(QStringLiteral("manifests"), {}, QStringLiteral("DIR"));
    const QCommandLineOption as(QStringLiteral("as"), {}, QStringLiteral("ID"));
    const QCommandLineOption startTimeout(QStringLiteral("start-timeout"), {}, QStringLiteral("MS"));
    const QCommandLineOption busProgram(QStringLiteral("bus-program"), {}, QStringLiteral("PATH"),
                                        QStringLiteral("dbus-daemon"));
    const QCommandLineOption verbose(QStringLiteral("verbose"));

    // Options of run stand between the word "run" and the command.
    const bool isRun = arguments.value(1) == QLatin1String("run");
    QCommandLineParser parser;
    parser.addOptions({help, version});
    if (isRun) {
        parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
        parser.addOptions({manifests, as, startTimeout, busProgram, verbose});
    }
    QStringList rest = arguments;
    if (isRun)
        rest.removeAt(1);
    if (!parser.parse(rest))
        fail(parser.errorText());
    if (parser.isSet(help))
        show(QString::fromLatin1(Help));
    if (parser.isSet(version))
        show(QStringLiteral("corvane-standin %1.%2.%3\n")
                 .arg(CORVANE_VERSION_MAJOR)
                 .arg(CORVANE_VERSION_MINOR)
                 .arg(CORVANE_VERSION_PATCH));

    const QStringList words = parser.positionalArguments();
    if (isRun) {
        RunOptions options;
        options.manifests = parser.values(manifests);
        options.applicationId = parser.value(as);
        options.busProgram = parser.value(busProgram);
        options.verbose = parser.isSet(verbose);
        options.command = words;
        if (parser.isSet(startTimeout)) {
            options.startTimeout = toNumber(parser.value(startTimeout)).value_or(0);
            if (options.startTimeout <= 0)
                fail(QStringLiteral("--start-timeout: expected milliseconds, found \"%1\"")
                         .arg(parser.value(startTimeout)));
        }
        if (words.isEmpty() || words.first().isEmpty())
            fail(QStringLiteral("Expected a command to run"));
        return options;
    }
    if (words.value(0) == QLatin1String("set"))
        return readSet(words);
    if (words.value(0) == QLatin1String("start"))
        return readApplication(QStringLiteral("StartApplication"), words);
    if (words.value(0) == QLatin1String("stop"))
        return readApplication(QStringLiteral("StopApplication"), words);
    failExpecting(QStringLiteral("\"run\", \"set\", \"start\" or \"stop\""), words.value(0));
}
