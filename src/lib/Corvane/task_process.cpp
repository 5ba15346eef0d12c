// SPDX-License-Identifier: BSD-3-Clause
#include "task_process.h"
#include "task_process_p.h"

#include "task_messaging_p.h"

#include <Core/environment.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QMetaMethod>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/eventfd.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace Corvane {

namespace {

constexpr std::chrono::milliseconds FinishInterval{10};

TaskProcessPrivate *current = nullptr; // the object that handles SIGTERM
struct sigaction previousAction;

// The signal handler uses only these numbers. It may run in any thread, even while the object is deleted. Therefore the
// event descriptor is created once and never closed.
std::atomic<int> eventDescriptor{-1};
std::atomic<pid_t> processId{0};
static_assert(std::atomic<int>::is_always_lock_free && std::is_same_v<pid_t, int>);

extern "C" void onTerminationSignal(int number)
{
    if (::getpid() != processId) { // a child process before exec(); it shares the event descriptor
        ::signal(number, SIG_DFL); // NOLINT: a system macro with a C-style cast
        ::raise(number);
        return;
    }
    const int savedError = errno;
    const quint64 one = 1;
    [[maybe_unused]] const ssize_t written = ::write(eventDescriptor, &one, sizeof one);
    errno = savedError;
}

} // namespace

TaskProcessPrivate::TaskProcessPrivate(TaskProcess *process)
    : taskId(Core::fromEnvironment(Core::Environment::TaskId)), q(process)
{
    QObject::connect(&finishTimer, &QTimer::timeout, q, [this] { continueFinish(); });
    if (current) {
        qWarning() << "There is another TaskProcess: this one has no channel and does not handle SIGTERM";
        return;
    }
    current = this;
    openChannel();
    handleTermination();
}

TaskProcessPrivate::~TaskProcessPrivate()
{
    if (current != this)
        return;
    current = nullptr;
    struct sigaction action = {};
    ::sigaction(SIGTERM, nullptr, &action);
    if (action.sa_handler == &onTerminationSignal)
        ::sigaction(SIGTERM, &previousAction, nullptr);
}

void TaskProcessPrivate::openChannel()
{
    const QByteArray value = qgetenv(Core::Environment::TaskSocket); // clazy:exclude=qgetenv
    if (value.isEmpty())
        return;
    bool isNumber = false;
    const int descriptor = value.toInt(&isNumber);
    if (!isNumber || !TaskMessagingPrivate::isListeningLocalSocket(descriptor)) {
        qWarning() << Core::Environment::TaskSocket << "is not a listening local socket:" << value;
        return;
    }
    messaging = new TaskMessaging(descriptor, q);
    messaging->d->clientAccepted = [process = QPointer<TaskProcess>(q)] {
        if (process)
            Q_EMIT process->clientConnected();
    };
}

void TaskProcessPrivate::handleTermination()
{
    if (eventDescriptor < 0)
        eventDescriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (eventDescriptor < 0) {
        qWarning() << "TaskProcess cannot handle SIGTERM:" << qt_error_string();
        return;
    }
    auto *notifier = new QSocketNotifier(eventDescriptor, QSocketNotifier::Read, q);
    QObject::connect(notifier, &QSocketNotifier::activated, q, [this] { onTermination(); });

    processId = ::getpid();
    struct sigaction action = {};
    action.sa_handler = &onTerminationSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, &previousAction);
}

void TaskProcessPrivate::onTermination()
{
    quint64 count = 0;
    if (::read(eventDescriptor, &count, sizeof count) != ssize_t(sizeof count) || std::exchange(isStopRequested, true))
        return;
    if (q->isSignalConnected(QMetaMethod::fromSignal(&TaskProcess::stopRequested)))
        Q_EMIT q->stopRequested();
    else
        finish(0);
}

void TaskProcessPrivate::finish(int code)
{
    if (std::exchange(isFinishing, true))
        return;
    exitCode = code;
    if (messaging)
        messaging->d->isFinishing = true;
    finishTimer.start(FinishInterval); // the kernel has no notification for messages that the client has read
}

void TaskProcessPrivate::continueFinish()
{
    if (QThread::currentThread()->loopLevel() == 0) // exit() has no effect before exec()
        return;
    if (finishDeadline.isForever())
        finishDeadline.setRemainingTime(maximumFinishTime);
    const bool isRead = !messaging || messaging->d->isAllRead();
    if (!isRead && !finishDeadline.hasExpired())
        return;
    if (!std::exchange(isClosed, true)) {
        if (!isRead)
            qWarning() << "TaskProcess has finished, although the client has not read all messages";
        if (messaging)
            messaging->d->close();
    }
    QCoreApplication::exit(exitCode); // repeated: this loop may be a nested one before exec()
}

TaskProcess::TaskProcess(QObject *parent) : QObject(parent), d(std::make_unique<TaskProcessPrivate>(this)) { }

TaskProcess::~TaskProcess() = default;

QString TaskProcess::taskId() const
{
    return d->taskId;
}

TaskMessaging *TaskProcess::messaging() const
{
    return d->messaging;
}

bool TaskProcess::isStopRequested() const
{
    return d->isStopRequested;
}

void TaskProcess::finish(int exitCode)
{
    d->finish(exitCode);
}

} // namespace Corvane
