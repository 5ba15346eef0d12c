// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QTimer>
#include <QtDBus/QDBusPendingCallWatcher>

namespace Corvane {

/// Calls \a handler once with the finished \a call, later, from the event loop; never if \a owner is gone by then.
template<typename Handler>
void onFinished(const QDBusPendingCall &call, QObject *owner, Handler handler)
{
    if (call.isFinished()) { // without a bus there is no call to watch, and a watcher would stay silent for ever
        QTimer::singleShot(0, owner, [call, handler] { handler(call); });
        return;
    }
    auto *watcher = new QDBusPendingCallWatcher(call, owner);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, owner, [watcher, call, handler] {
        watcher->deleteLater();
        handler(call); // may delete the owner, and the watcher with it
    });
}

/// A call that fails for what is wrong with it, without being sent. The problem is told as Error::Failed.
inline QDBusPendingCall refusedCall(const QString &problem)
{
    return QDBusPendingCall::fromError(QDBusError(QDBusError::Failed, problem));
}

} // namespace Corvane
