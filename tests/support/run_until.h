// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "patience.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QTimer>

/// Runs the event loop until the condition is true, without the pauses of QTRY_VERIFY. Returns false after a timeout.
template<typename Condition>
bool runUntil(Condition condition)
{
    QTimer tick;
    tick.start(100); // wakes the loop for the timeout
    const QDeadlineTimer patience(Patience);
    while (!patience.hasExpired()) {
        if (condition())
            return true; // the next event may change the condition again
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return false;
}
