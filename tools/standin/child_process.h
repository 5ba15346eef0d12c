// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QSet>

#include <sys/types.h>

/**
 * A process that the stand-in starts. It shares the stand-in's standard output and error, unless it has a label, and
 * gets SIGTERM if the stand-in is killed.
 */
class ChildProcess : public QProcess
{
    Q_OBJECT
public:
    enum class Terminal {
        Shared, ///< inherits the stand-in's standard input and the terminal's Ctrl-C
        Detached, ///< has no input and no terminal
    };

    static constexpr int GracePeriod = 2000; ///< milliseconds from SIGTERM to SIGKILL

    explicit ChildProcess(Terminal terminal, QObject *parent = nullptr);
    ~ChildProcess() override;

    /// Starts the program with its arguments, and blocks until it has started or ended() is emitted.
    void start(const QStringList &command);

    /// Sends SIGTERM, and SIGKILL after the grace period. Does not block.
    void end();

    /// Writes this text before each line of the output of the process. Call it before start().
    void setLabel(const QString &label) { m_label = label; }
    /// Sets a descriptor that the process inherits under the same number; none if negative.
    void setInherited(int descriptor) { m_inherited = descriptor; }
    /// Sets the niceness of the process, as far as the permissions of this process allow it.
    void setNiceness(int niceness) { m_niceness = niceness; }

    /// Whether the process could not be started.
    bool hasFailedToStart() const { return error() == FailedToStart; }
    /// The exit code that a shell would return: that of the process, 128 plus the number of the signal that ended it,
    /// or ExitCode::CannotStart.
    int shellExitCode() const;

    /// The processes that were started here and have not been waited for.
    static QSet<pid_t> running();

    /// Whether an environment variable identifies a process to the service.
    static bool isIdentity(const QString &variable);
    /// The environment of this process, without the variables that identify a process to the service.
    static QProcessEnvironment cleanEnvironment();

Q_SIGNALS:
    /// The process has ended, or could not be started. \a how says so for people: "has ended with exit code 3".
    void ended(const QString &how);

protected:
    void setupChildProcess() override;

private:
    void startProcess(const QStringList &command);
    QString howEnded() const;

    const Terminal m_terminal;
    const qint64 m_parentId;
    int m_inherited = -1;
    int m_niceness = 0;
    QString m_label;
    int m_output = -1; ///< its standard output; inherited if negative
    int m_errors = -1; ///< its standard error; inherited if negative
};
