// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QSet>

#include <sys/types.h>

/**
 * A process that the stand-in starts. It writes where the stand-in writes, and gets SIGTERM if the stand-in is killed.
 */
class ChildProcess : public QProcess
{
    Q_OBJECT
public:
    enum class Terminal {
        Shared, ///< reads the stand-in's standard input, and gets the terminal's Ctrl-C
        Detached, ///< reads nothing, and only the stand-in ends it
    };

    explicit ChildProcess(Terminal terminal, QObject *parent = nullptr);
    ~ChildProcess() override;

    /// Starts the program with its arguments, and waits until it has started; errorOccurred() tells if that fails.
    void start(const QStringList &command);

    /// Ends the process, with SIGTERM and two seconds later with SIGKILL. Does not wait for it.
    void end();

    /// A descriptor that the process is to have under the same number; none if negative.
    void setInherited(int descriptor) { m_inherited = descriptor; }
    /// The niceness of the process, as far as this one may give it.
    void setNiceness(int niceness) { m_niceness = niceness; }

    /// How the process has ended, as a shell would tell it: its exit code, or 128 and the signal's number.
    int shellExitCode() const;

    /// The processes that have been started here and not been noticed to end.
    static QSet<pid_t> running();

    /// This process's environment without what says who a process is to the service.
    static QProcessEnvironment cleanEnvironment();

protected:
    void setupChildProcess() override;

private:
    const Terminal m_terminal;
    const qint64 m_parentId;
    int m_inherited = -1;
    int m_niceness = 0;
};
