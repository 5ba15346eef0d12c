// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <json.h>
#include <patience.h>
#include <run_until.h>

#include <QtCore/QProcess>

#include <csignal>

/// The outcome of a run of the program "corvane".
struct Result
{
    int exitCode; ///< -1 after a signal.
    QString output;
    QString errors;
};

inline Result finished(QProcess &process)
{
    if (process.state() != QProcess::NotRunning && !process.waitForFinished(Patience))
        qFatal("The program does not end: %s", process.readAllStandardError().constData());
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

/// Runs the program until it ends.
inline Result run(const QString &program, const QStringList &arguments, const QByteArray &input = {},
                  const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    return finished(process);
}

inline Result corvane(const QStringList &arguments, const QByteArray &input = {})
{
    return run(CORVANE_PROGRAM, arguments, input);
}

/// The program "corvane" while it runs.
class RunningProgram : public QProcess
{
public:
    explicit RunningProgram(const QStringList &arguments) { start(CORVANE_PROGRAM, arguments); }
    ~RunningProgram() override
    {
        kill();
        waitForFinished(Patience);
    }

    /// Waits for the next line of standard output or standard error.
    QString nextLine(ProcessChannel channel = StandardOutput)
    {
        setReadChannel(channel);
        if (!runUntil([this] { return canReadLine() || state() == NotRunning; }))
            qFatal("The program prints no line");
        return QString::fromUtf8(readLine()).trimmed();
    }
    /// Sends a signal, and waits until the program has ended.
    Result end(int signal)
    {
        ::kill(pid_t(processId()), signal);
        return ::finished(*this);
    }
};

/// Splits a command line at spaces. A word in single quotes may contain spaces.
inline QStringList words(const QString &line)
{
    QStringList result;
    const QStringList parts = line.split('\'');
    for (int i = 0; i < parts.size(); ++i) {
        if (i % 2 == 1)
            result << parts.at(i);
        else
            result << parts.at(i).split(' ', Qt::SkipEmptyParts);
    }
    return result;
}

/// Runs a command that fails, with and without --json, and compares its output.
inline void compareFailure(const QStringList &arguments, int exitCode, const QString &name, const QString &message,
                           const QByteArray &input = {})
{
    const Result text = corvane(arguments, input);
    QCOMPARE(text.errors.section('\n', 0, 0), "corvane: " + message);
    QCOMPARE(text.output, QString());
    QCOMPARE(text.exitCode, exitCode);

    const Result json = corvane(QStringList("--json") + arguments, input);
    QCOMPARE(json.exitCode, exitCode);
    QCOMPARE(json.output.count('\n'), 1);
    const QJsonObject error = fromJson(json.output.toUtf8()).toObject().value("error").toObject();
    QCOMPARE(toJson(error), toJson(QJsonObject{{"code", exitCode}, {"name", name}, {"message", message}}));
}
