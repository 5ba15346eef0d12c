// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtDBus/QDBusPendingCallWatcher>

#include <memory>

namespace Corvane {

/// Calls \a handler once with the finished \a call, later, from the event loop; never if \a owner is gone by then.
/// Handlers are called in the order in which their calls finish.
template<typename Handler>
void onFinished(const QDBusPendingCall &call, QObject *owner, Handler handler)
{
    auto watcher = std::make_unique<QDBusPendingCallWatcher>(call, owner);
    if (call.isFinished()) { // the watcher would emit a turn of the event loop late, or, without a bus, never
        QMetaObject::invokeMethod(
            owner, [call, handler] { handler(call); }, Qt::QueuedConnection);
        return;
    }
    auto *const watching = watcher.release(); // the owner's
    QObject::connect(watching, &QDBusPendingCallWatcher::finished, owner, [watching, call, handler] {
        watching->deleteLater();
        handler(call); // may delete the owner, and the watcher with it
    });
}

/// A call that fails for what is wrong with it, without being sent. The problem is told as Error::Failed.
inline QDBusPendingCall refusedCall(const QString &problem)
{
    return QDBusPendingCall::fromError(QDBusError(QDBusError::Failed, problem));
}

} // namespace Corvane
