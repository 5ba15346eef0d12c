// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <patience.h>

#include <QtCore/QProcess>

inline const QString Program = QStringLiteral(CORVANE_STANDIN);
inline const QString Applications = QStringLiteral(CORVANE_APPLICATIONS);

struct Result
{
    int exitCode;
    QString output;
    QString errors;
};

/// Runs corvane-standin with these arguments until it ends.
inline Result runStandIn(const QStringList &arguments, const QProcessEnvironment &environment,
                         const QByteArray &input = {})
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(Program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(Patience))
        qFatal("The command does not end: %s", process.readAllStandardError().constData());
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

/// A stand-in that runs until it is told to end.
class StandIn
{
public:
    explicit StandIn(const QProcessEnvironment &environment, const QStringList &options = {},
                     const QStringList &command = {"sh", "-c", "echo ready $PPID; read line; exit 5"})
    {
        const QString bus = "--bus-program=" + qEnvironmentVariable("CORVANE_BUS_PROGRAM");
        const QString timeout = QString("--start-timeout=%1").arg(Patience);
        process.setProcessEnvironment(environment);
        process.start(Program, QStringList({"run", bus, timeout}) + options + QStringList("--") + command);
    }
    ~StandIn() { end(); }
    Q_DISABLE_COPY(StandIn)

    bool isReady()
    {
        while (process.state() != QProcess::NotRunning && !process.canReadLine())
            process.waitForReadyRead(Patience);
        return process.readLine().startsWith("ready ");
    }
    int end()
    {
        process.write("\n");
        return process.waitForFinished(Patience) ? process.exitCode() : -1;
    }

    QProcess process;
};
