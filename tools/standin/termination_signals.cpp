// SPDX-License-Identifier: BSD-3-Clause
#include "termination_signals.h"

#include <QtCore/QSocketNotifier>

#include <sys/signalfd.h>
#include <unistd.h>

sigset_t TerminationSignals::handled()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        ::sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_IGN) // NOLINT: a system macro with a C-style cast
            ::sigaddset(&signals, number);
    }
    return signals;
}

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    const sigset_t signals = handled();
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    m_descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    auto *notifier = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &TerminationSignals::read);
}

TerminationSignals::~TerminationSignals()
{
    ::close(m_descriptor);
}

void TerminationSignals::read()
{
    signalfd_siginfo info{};
    if (::read(m_descriptor, &info, sizeof info) == ssize_t(sizeof info))
        Q_EMIT received(int(info.ssi_signo));
}
