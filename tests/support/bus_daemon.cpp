// SPDX-License-Identifier: BSD-3-Clause
#include "bus_daemon.h"

#include "patience.h"

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {

void signalProcess(qint64 processId, int signal)
{
    if (::kill(pid_t(processId), signal) != 0)
        qFatal("The bus has ended");
}

} // namespace

BusDaemon::BusDaemon(const QString &configuration)
{
    setProcessChannelMode(ForwardedErrorChannel);
    start(qEnvironmentVariable("CORVANE_BUS_PROGRAM"),
          {"--config-file=" + configuration, "--nofork", "--print-address"});
    while (!canReadLine()) {
        if (!waitForReadyRead(Patience))
            qFatal("The bus does not start");
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", readLine().trimmed());
}

BusDaemon::~BusDaemon()
{
    if (state() != NotRunning)
        crash();
}

void BusDaemon::hang()
{
    signalProcess(processId(), SIGSTOP);
    siginfo_t stopped = {};
    while (::waitid(P_PID, id_t(processId()), &stopped, WSTOPPED) != 0) {
        if (errno != EINTR)
            qFatal("The bus does not stop");
    }
}

void BusDaemon::goOn()
{
    signalProcess(processId(), SIGCONT);
}

void BusDaemon::crash()
{
    kill();
    if (!waitForFinished(Patience))
        qFatal("The bus does not end");
}

void BusDaemon::setupChildProcess()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // SIGKILL also ends a stopped bus
}
