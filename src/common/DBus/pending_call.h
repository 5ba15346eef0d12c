// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtDBus/QDBusPendingCallWatcher>

#include <memory>
#include <utility>

namespace Corvane {

/// Calls a handler, and releases it before the function returns. The handler and the destructors of its captures may
/// delete the owner and the watcher of the call.
template<typename Handler>
void callOnce(Handler &handler, const QDBusPendingCall &call)
{
    const auto once = std::move(handler);
    once(call);
}

/// Calls \a handler once with the finished \a call, from the event loop. Never calls it after \a owner is deleted.
/// Handlers are called in the order in which their calls finish.
template<typename Handler>
void onFinished(const QDBusPendingCall &call, QObject *owner, Handler handler)
{
    auto watcher = std::make_unique<QDBusPendingCallWatcher>(call, owner);
    if (call.isFinished()) { // a watcher would emit one iteration of the event loop later, or never without a bus
        QMetaObject::invokeMethod(
            owner, [call, handler]() mutable { callOnce(handler, call); }, Qt::QueuedConnection);
        return;
    }
    auto *const watching = watcher.release(); // owned by the owner
    QObject::connect(watching, &QDBusPendingCallWatcher::finished, owner, [watching, call, handler]() mutable {
        watching->deleteLater();
        callOnce(handler, call);
    });
}

/// Returns an already failed call that is not sent. The error is Error::Failed with \a problem as its message.
inline QDBusPendingCall refusedCall(const QString &problem)
{
    return QDBusPendingCall::fromError(QDBusError(QDBusError::Failed, problem));
}

} // namespace Corvane
