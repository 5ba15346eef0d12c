// SPDX-License-Identifier: BSD-3-Clause
#include "joined_process.h"

#include "child_process.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <csignal>
#include <unistd.h>
extern "C" { // missing in the header of glibc 2.36
#include <sys/pidfd.h>
}

JoinedProcess::JoinedProcess(pid_t processId, QObject *parent)
    : QObject(parent), m_processId(processId), m_descriptor(::pidfd_open(processId, 0))
{
    if (!isValid())
        return;
    auto *notifier = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
        notifier->setEnabled(false);
        Q_EMIT ended();
    });
}

JoinedProcess::~JoinedProcess()
{
    if (isValid())
        ::close(m_descriptor);
}

void JoinedProcess::signal(int number)
{
    ::pidfd_send_signal(m_descriptor, number, nullptr, 0);
}

void JoinedProcess::end()
{
    signal(SIGTERM);
    QTimer::singleShot(ChildProcess::GracePeriod, this, [this] { signal(SIGKILL); });
}
