// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "params.h"
#include "session.h"

#include <Corvane/runtime_dispatcher.h>
#include <Corvane/service_monitor.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>

using Corvane::Error;
using Corvane::IncomingIntent;
using Corvane::RuntimeDispatcher;

namespace {

QString lastLine(const QByteArray &text)
{
    return QString::fromUtf8(text).trimmed().section(QLatin1Char('\n'), -1);
}

constexpr int MaxErrors = 64 * 1024; // bytes of standard error to keep, for the last line

/// Runs the command once for each intent.
class Handler
{
public:
    Handler(const QString &intentName, const QStringList &command) : m_intentName(intentName), m_command(command) { }
    ~Handler();
    Q_DISABLE_COPY(Handler)

    int run();

private:
    struct Run : QProcess
    {
        QByteArray errors; ///< The end of its standard error.
    };

    void start(const IncomingIntent &intent);
    void readErrors(Run *run) const;
    void finish(const IncomingIntent &intent, Run *run);
    void answer(const IncomingIntent &intent, Run *run) const;
    void fail(const IncomingIntent &intent, const QString &text) const;
    void end();

    const QString m_intentName;
    const QStringList m_command;
    RuntimeDispatcher *const m_dispatcher = RuntimeDispatcher::instance();
    QVector<Run *> m_runs;
    bool m_isEnding = false;
};

Handler::~Handler()
{
    // The bus is lost if commands are still running.
    for (Run *run : qAsConst(m_runs)) {
        run->disconnect();
        run->kill();
        run->waitForFinished();
        delete run;
    }
}

int Handler::run()
{
    const QString instance = m_dispatcher->applicationInstanceId();
    if (instance.isEmpty())
        return Output::fail({Error::Failed,
                             QStringLiteral("This process has no identity. Start it with: corvane-standin run --as ID "
                                            "-- corvane handle ..., or: corvane-standin exec --as ID -- corvane "
                                            "handle ...")});
    m_dispatcher->registerIntentHandler(m_intentName, [this](const IncomingIntent &intent) { start(intent); });
    const Corvane::ServiceMonitor monitor; // has its reply when startService() returns
    if (const Error error = m_dispatcher->startService())
        return Output::fail(Session::explained(error));
    QObject::connect(&monitor, &Corvane::ServiceMonitor::availableChanged, &monitor, [this](bool available) {
        // The process still owns its name, unless the bus is lost.
        if (!available && m_dispatcher->startService())
            QCoreApplication::exit(Output::fail({Error::Failed, QStringLiteral("The session bus has ended")}));
    });

    Session::onTermination([this] { end(); });
    Output::printLine(QStringLiteral("Handling %1 as %2").arg(Output::strong(m_intentName), instance),
                      {{QStringLiteral("handling"), m_intentName}, {QStringLiteral("instance"), instance}});
    const int exitCode = QCoreApplication::exec();
    if (exitCode != Error::NoError)
        return exitCode;
    // Blocks until the bus has replied; it has then received all answers.
    const Error error = m_dispatcher->stopService();
    return error ? Output::fail(error) : 0;
}

void Handler::start(const IncomingIntent &intent)
{
    auto *run = new Run;
    m_runs.append(run);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("CORVANE_INTENT"), intent.intentName());
    run->setProcessEnvironment(environment);
    QObject::connect(run, &QProcess::readyReadStandardError, run, [this, run] { readErrors(run); });
    QObject::connect(run, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), run,
                     [this, intent, run] { finish(intent, run); });
    QObject::connect(
        run, &QProcess::errorOccurred, run,
        [this, intent, run](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                finish(intent, run);
        },
        Qt::QueuedConnection); // start() may emit the signal
    run->start(m_command.first(), m_command.mid(1));
    run->write(QJsonDocument(intent.params()).toJson(QJsonDocument::Compact) + '\n');
    run->closeWriteChannel();
}

void Handler::readErrors(Run *run) const
{
    const QByteArray text = run->readAllStandardError();
    Output::forwardErrors(text);
    run->errors = (run->errors + text).right(MaxErrors);
}

void Handler::finish(const IncomingIntent &intent, Run *run)
{
    readErrors(run);
    answer(intent, run);
    m_runs.removeOne(run);
    run->deleteLater();
    if (m_isEnding && m_runs.isEmpty())
        QCoreApplication::quit();
}

void Handler::answer(const IncomingIntent &intent, Run *run) const
{
    const QString &program = m_command.first();
    if (run->error() == QProcess::FailedToStart)
        return fail(intent, QStringLiteral("%1 cannot be started: %2").arg(program, run->errorString()));
    if (run->exitStatus() != QProcess::NormalExit)
        return fail(intent, QStringLiteral("%1 was ended by a signal").arg(program));
    if (run->exitCode() != 0) {
        const QString line = lastLine(run->errors);
        return fail(intent,
                    line.isEmpty() ? QStringLiteral("%1 has ended with exit code %2").arg(program).arg(run->exitCode())
                                   : line);
    }
    const QByteArray output = run->readAllStandardOutput();
    QJsonObject reply;
    if (!output.trimmed().isEmpty()) {
        if (const Error error = readObject(output, QStringLiteral("The output of ") + program, &reply))
            return fail(intent, error.message());
    }
    intent.reply(reply);
    Output::printLine(QStringLiteral("%1 replied").arg(m_intentName),
                      {{QStringLiteral("intent"), m_intentName},
                       {QStringLiteral("params"), intent.params()},
                       {QStringLiteral("reply"), reply}});
}

void Handler::fail(const IncomingIntent &intent, const QString &text) const
{
    intent.fail(text);
    Output::printLine(QStringLiteral("%1 failed: %2").arg(m_intentName, text),
                      {{QStringLiteral("intent"), m_intentName},
                       {QStringLiteral("params"), intent.params()},
                       {QStringLiteral("failure"), text}});
}

/// The first call refuses new intents, and ends the program when the running commands have ended. The second call ends
/// these commands.
void Handler::end()
{
    if (m_isEnding) {
        for (Run *run : qAsConst(m_runs))
            run->kill();
        return;
    }
    m_isEnding = true;
    m_dispatcher->unregisterIntent(m_intentName);
    if (m_runs.isEmpty())
        QCoreApplication::quit();
}

} // namespace

int handleIntent(const Invocation &invocation)
{
    return Handler(invocation.arguments.first(), invocation.rest).run();
}
