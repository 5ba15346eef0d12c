// SPDX-License-Identifier: BSD-3-Clause
// The debug output of the enumerations and of Error. The enumerations are not in the meta-objects of their classes,
// therefore Qt does not know their names.
#include "error.h"
#include "intent_request.h"
#include "lifecycle.h"
#include "task.h"
#include "task_messaging.h"

#include <QtCore/QDebug>

#include <type_traits>

namespace Corvane {

namespace {

const char *name(Error::Code code)
{
    switch (code) {
    case Error::NoError:
        return "NoError";
    case Error::Failed:
        return "Failed";
    case Error::HandlerNotFound:
        return "HandlerNotFound";
    case Error::HandlerFailed:
        return "HandlerFailed";
    case Error::InvalidArgs:
        return "InvalidArgs";
    case Error::NotSupported:
        return "NotSupported";
    case Error::AccessDenied:
        return "AccessDenied";
    case Error::ProcessNotHandled:
        return "ProcessNotHandled";
    case Error::ApplicationNotRunning:
        return "ApplicationNotRunning";
    case Error::ApplicationAlreadyRunning:
        return "ApplicationAlreadyRunning";
    case Error::ApplicationAlreadyLaunching:
        return "ApplicationAlreadyLaunching";
    }
    return nullptr;
}

const char *name(ApplicationState state)
{
    switch (state) {
    case UnknownState:
        return "UnknownState";
    case LaunchingState:
        return "LaunchingState";
    case ForegroundState:
        return "ForegroundState";
    case BackgroundState:
        return "BackgroundState";
    case SuspendedState:
        return "SuspendedState";
    case StoppedState:
        return "StoppedState";
    }
    return nullptr;
}

const char *name(Task::State state)
{
    switch (state) {
    case Task::Unknown:
        return "Unknown";
    case Task::Running:
        return "Running";
    case Task::Stopped:
        return "Stopped";
    case Task::Waiting:
        return "Waiting";
    }
    return nullptr;
}

const char *name(Task::StopFlag flag)
{
    return flag == Task::Force ? "Force" : nullptr;
}

const char *name(TaskMessaging::State state)
{
    switch (state) {
    case TaskMessaging::Unconnected:
        return "Unconnected";
    case TaskMessaging::Connecting:
        return "Connecting";
    case TaskMessaging::Connected:
        return "Connected";
    case TaskMessaging::Closing:
        return "Closing";
    }
    return nullptr;
}

/// Prints scope and name, or scope, type and number, like Qt's operator for enumerations of a meta-object.
template<typename Enumeration>
QDebug &print(QDebug &debug, const char *scope, const char *type, Enumeration value)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << scope << "::";
    if (const char *const known = name(value))
        debug << known;
    else
        debug << type << '(' << std::underlying_type_t<Enumeration>(value) << ')';
    return debug;
}

} // namespace

QDebug operator<<(QDebug debug, Error::Code code)
{
    return print(debug, "Corvane::Error", "Code", code);
}

QDebug operator<<(QDebug debug, const Error &error)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Corvane::Error(";
    if (const char *const known = name(error.code()))
        debug << known;
    else
        debug << int(error.code());
    debug << ", " << error.message() << ')';
    return debug;
}

QDebug operator<<(QDebug debug, const IntentRequest::Result &result)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Corvane::IntentRequest::Result(" << result.state << ", " << result.reply << ", " << result.error
                    << ')';
    return debug;
}

QDebug operator<<(QDebug debug, ApplicationState state)
{
    return print(debug, "Corvane", "ApplicationState", state);
}

QDebug operator<<(QDebug debug, Task::State state)
{
    return print(debug, "Corvane::Task", "State", state);
}

QDebug operator<<(QDebug debug, Task::StopFlag flag)
{
    return print(debug, "Corvane::Task", "StopFlag", flag);
}

QDebug operator<<(QDebug debug, Task::StopFlags flags)
{
    const int unknown = flags & ~int(Task::Force);
    const QDebugStateSaver saver(debug);
    debug.nospace() << "QFlags<Corvane::Task::StopFlag>(";
    if (flags & Task::Force)
        debug << name(Task::Force) << (unknown ? "|" : "");
    if (unknown)
        debug << Qt::showbase << Qt::hex << unknown;
    debug << ')';
    return debug;
}

QDebug operator<<(QDebug debug, TaskMessaging::State state)
{
    return print(debug, "Corvane::TaskMessaging", "State", state);
}

} // namespace Corvane
