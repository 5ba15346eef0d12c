// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "patience.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QTimer>

/// Runs the event loop, without the pauses that QTRY_VERIFY makes, until the condition holds; false if it never does.
template<typename Condition>
bool runUntil(Condition condition)
{
    QTimer tick;
    tick.start(100); // to look at the clock
    const QDeadlineTimer patience(Patience);
    while (!patience.hasExpired()) {
        if (condition())
            return true; // though it may not hold for long
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return false;
}
