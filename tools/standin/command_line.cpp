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

Replaces the application-runtime service during the development of applications.

run starts a private session bus, offers the interfaces of the service there,
and runs COMMAND on it. When COMMAND ends, or on Ctrl-C, it ends all processes
that it has started. The normal session bus of the user is not used.

  --manifests DIR     Read the applications from DIR: each *.json file describes
                      one. May be given several times.
  --as ID             Run COMMAND as the application ID of the manifests.
  --start-timeout MS  The time in which an application must claim its bus name,
                      in milliseconds (default: 10000).
  --bus-program PATH  Run this program as the session bus, with the options of
                      dbus-daemon (default: dbus-daemon).
  --verbose           Print each routed message to standard error, one per line.

The other commands control a running stand-in. Run them on its bus, for example
from COMMAND:

set memory sets the memory pressure. With auto, the default, the level follows
the kernel: critical if all processes waited for memory in at least a tenth of
the last ten seconds, low if some did.
set clock advances the clock for tasks by seconds, minutes, hours or days, and
prints the new time.
start starts an application, waits until it has claimed its bus name, and prints
its instance id. stop ends an application, and waits until it has ended.

  --help              Show this text.
  --version           Show the version.

A manifest describes an application:
  {
      "id": "viewer",
      "name": "Viewer",
      "command": ["./viewer", "--quiet"],
      "intents": ["OpenURI"],
      "tasks": [{"id": "index", "command": ["./indexer"]}]
  }
"name", "intents" and "tasks" are optional. "properties" of a task are optional
too: with {"Autostart": true, "Interval": 60} the task starts with the stand-in.
A program name with a '/' is relative to the directory of the manifest; another
one is searched on the PATH. The program must stay in the foreground.

Exit codes of run: that of COMMAND, or
   64  invalid command line
   65  invalid manifest
   69  no private bus
  127  COMMAND cannot be started
  128+N  COMMAND, or corvane-standin itself, was ended by signal N
Exit codes of the others:
    0  done
    1  failed; the reason is on standard error
   64  invalid command line
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
        failExpecting(QStringLiteral("a duration such as \"+90m\""), words.value(2));
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

    // The options of run are between the word "run" and the command.
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
