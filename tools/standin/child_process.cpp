// SPDX-License-Identifier: BSD-3-Clause
#include "child_process.h"

#include "exit_code.h"
#include "labelled_output.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

QSet<ChildProcess *> &allChildren()
{
    static QSet<ChildProcess *> children;
    return children;
}

} // namespace

ChildProcess::ChildProcess(Terminal terminal, QObject *parent)
    : QProcess(parent), m_terminal(terminal), m_parentId(QCoreApplication::applicationPid())
{
    allChildren().insert(this);
    setProcessChannelMode(ForwardedChannels);
    setProcessEnvironment(cleanEnvironment());
    if (terminal == Terminal::Shared)
        setInputChannelMode(ForwardedInputChannel);
    else
        setStandardInputFile(nullDevice());

    connect(this, qOverload<int, ExitStatus>(&QProcess::finished), this, [this] {
        LabelledOutput::flushAll(); // before the end of the process is reported
        Q_EMIT ended(howEnded());
    });
    connect(this, &QProcess::errorOccurred, this, [this](ProcessError processError) {
        if (processError == FailedToStart) // finished() is not emitted then
            Q_EMIT ended(howEnded());
    });
}

ChildProcess::~ChildProcess()
{
    allChildren().remove(this);
    blockSignals(true);
    if (state() != NotRunning) {
        kill();
        waitForFinished();
    }
}

void ChildProcess::start(const QStringList &command)
{
    if (m_label.isEmpty()) {
        startProcess(command);
        return;
    }
    auto *output = new LabelledOutput(m_label, STDOUT_FILENO); // it deletes itself
    auto *errors = new LabelledOutput(m_label, STDERR_FILENO);
    m_output = output->writeEnd();
    m_errors = errors->writeEnd();
    startProcess(command);
    output->closeWriteEnd();
    errors->closeWriteEnd();
}

void ChildProcess::startProcess(const QStringList &command)
{
    QProcess::start(command.first(), command.mid(1));
    waitForStarted(); // else messages of the process could be handled before started() is emitted
}

void ChildProcess::end()
{
    terminate();
    QTimer::singleShot(GracePeriod, this, &QProcess::kill);
}

QSet<pid_t> ChildProcess::running()
{
    QSet<pid_t> ids;
    for (const ChildProcess *child : qAsConst(allChildren()))
        ids.insert(pid_t(child->processId()));
    return ids;
}

int ChildProcess::shellExitCode() const
{
    if (hasFailedToStart())
        return ExitCode::CannotStart;
    return exitStatus() == NormalExit ? exitCode() : ExitCode::Signal + exitCode();
}

QString ChildProcess::howEnded() const
{
    if (hasFailedToStart())
        return QStringLiteral("cannot be started: %1: %2")
            .arg(program(), errorString().section(QStringLiteral(": "), -1)); // without "execve"
    return (exitStatus() == NormalExit ? QStringLiteral("has ended with exit code %1")
                                       : QStringLiteral("was ended by signal %1"))
        .arg(exitCode());
}

bool ChildProcess::isIdentity(const QString &variable)
{
    return variable.startsWith(QLatin1String("HALVIR_APP_")) || variable.startsWith(QLatin1String("HALVIR_TASK_"));
}

QProcessEnvironment ChildProcess::cleanEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QStringList names = environment.keys();
    for (const QString &name : names) {
        if (isIdentity(name))
            environment.remove(name);
    }
    return environment;
}

// Runs in the child, between fork and exec.
void ChildProcess::setupChildProcess()
{
    if (m_terminal == Terminal::Detached)
        ::setsid();
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != m_parentId) // the stand-in was killed before prctl()
        ::_exit(1);
    if (m_output >= 0)
        ::dup2(m_output, STDOUT_FILENO);
    if (m_errors >= 0)
        ::dup2(m_errors, STDERR_FILENO);
    if (m_inherited >= 0)
        ::fcntl(m_inherited, F_SETFD, 0);
    if (m_niceness != 0)
        ::setpriority(PRIO_PROCESS, 0, m_niceness);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}
