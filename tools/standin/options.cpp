// SPDX-License-Identifier: BSD-3-Clause
#include "options.h"

#include "exit_code.h"

#include <Corvane/corvane_version.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QTextStream>

#include <cstdlib>

namespace {

const char Help[] = R"(Usage: corvane-standin run [OPTION]... [--] COMMAND [ARGUMENT]...

Stands in for the application-runtime service while applications are developed.
It starts a session bus of its own with the service on it, runs COMMAND there,
and ends everything that it started when COMMAND ends, or on Ctrl-C. The normal
session bus of the user is not touched.

Options of run:
  --manifests DIR     Applications that intents can be routed to: each *.json
                      file in DIR describes one. May be given several times.
  --as ID             Run COMMAND as the application ID of the manifests.
  --start-timeout MS  How long an application may take to claim its bus name,
                      in milliseconds (default: 10000).
  --verbose           Show each message that is routed, one a line, on standard
                      error.

  --help              Show this text.
  --version           Show the version.

An application is described by a manifest such as
  {
      "id": "viewer",
      "name": "Viewer",
      "command": ["./viewer", "--quiet"],
      "intents": ["OpenURI"]
  }
"name" and "intents" may be left out. A program with a '/' in it is found from
the manifest's directory, another on the PATH. It has to stay in the foreground.

Exit codes:
  COMMAND's own, or
   64  wrong command line
   65  wrong manifest
   69  no private bus
  127  COMMAND cannot be started
  128+N  COMMAND, or corvane-standin itself, was ended by signal N
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

} // namespace

Options readOptions(const QStringList &arguments)
{
    const QCommandLineOption help(QStringLiteral("help"));
    const QCommandLineOption version(QStringLiteral("version"));
    const QCommandLineOption manifests(QStringLiteral("manifests"), {}, QStringLiteral("DIR"));
    const QCommandLineOption as(QStringLiteral("as"), {}, QStringLiteral("ID"));
    const QCommandLineOption startTimeout(QStringLiteral("start-timeout"), {}, QStringLiteral("MS"),
                                          QStringLiteral("10000"));
    const QCommandLineOption verbose(QStringLiteral("verbose"));
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    parser.addOptions({help, version, manifests, as, startTimeout, verbose});

    // Options stand before and after the word "run".
    QStringList rest = arguments;
    const bool hasRun = arguments.value(1) == QLatin1String("run");
    if (hasRun)
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
    if (!hasRun)
        fail(arguments.size() > 1 ? QStringLiteral("Expected \"run\", found \"%1\"").arg(arguments.at(1))
                                  : QStringLiteral("Expected \"run\""));

    Options options;
    options.manifests = parser.values(manifests);
    options.applicationId = parser.value(as);
    options.verbose = parser.isSet(verbose);
    options.command = parser.positionalArguments();
    bool isNumber = false;
    options.startTimeout = parser.value(startTimeout).toInt(&isNumber);
    if (!isNumber || options.startTimeout <= 0)
        fail(QStringLiteral("--start-timeout: expected milliseconds, found \"%1\"").arg(parser.value(startTimeout)));
    if (options.command.isEmpty() || options.command.first().isEmpty())
        fail(QStringLiteral("Expected a command to run"));
    return options;
}
