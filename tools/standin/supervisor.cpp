// SPDX-License-Identifier: BSD-3-Clause
#include "supervisor.h"

#include "child_process.h"
#include "complain.h"
#include "exit_code.h"
#include "process_tree.h"
#include "termination_signals.h"

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Sends SIGTERM to this process when \a parent ends.
void endWith(pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) // it has ended before prctl()
        ::raise(SIGTERM);
}

/// Forwards signals to the child process until it has ended, and returns its status of waitpid().
int forwardSignals(pid_t child)
{
    sigset_t signals = TerminationSignals::handled();
    ::sigaddset(&signals, SIGCHLD);
    for (;;) {
        const int number = ::sigwaitinfo(&signals, nullptr);
        if (number > 0 && number != SIGCHLD)
            ::kill(child, number);
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child)
            return status;
    }
}

int exitCode(int status)
{
    return WIFSIGNALED(status) ? ExitCode::Signal + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

std::optional<int> supervise(const std::function<void()> &cleanUp)
{
    ::signal(SIGCHLD, SIG_DFL); // it may be ignored
    sigset_t childSignal;
    ::sigemptyset(&childSignal);
    ::sigaddset(&childSignal, SIGCHLD);
    sigset_t signals = TerminationSignals::handled();
    ::sigaddset(&signals, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);

    const pid_t original = ::getpid();
    const pid_t supervisor = ::fork();
    if (supervisor > 0)
        return exitCode(forwardSignals(supervisor));
    if (supervisor < 0) {
        complain(QStringLiteral("No process can be started: %1").arg(qt_error_string()));
        return ExitCode::CannotStart;
    }

    endWith(original);
    const ProcessTree processes;
    const pid_t self = ::getpid();
    const pid_t standIn = ::fork();
    if (standIn == 0) {
        endWith(self);
        ::sigprocmask(SIG_UNBLOCK, &childSignal, nullptr); // the others stay blocked for TerminationSignals
        return {};
    }
    if (standIn < 0) {
        complain(QStringLiteral("No process can be started: %1").arg(qt_error_string()));
        ::_exit(ExitCode::CannotStart);
    }
    ::setsid();
    ::signal(SIGPIPE, SIG_IGN); // nobody may read the standard error any more
    ::prctl(PR_SET_NAME, "standin-watch"); // "killall corvane-standin" does not kill it
    const int status = forwardSignals(standIn);
    if (WIFSIGNALED(status))
        complain(QStringLiteral("The stand-in was ended by signal %1").arg(WTERMSIG(status)));
    processes.endAll(0, ChildProcess::GracePeriod);
    cleanUp();
    ::_exit(exitCode(status));
}
