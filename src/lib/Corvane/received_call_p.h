// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "file_sharing.h"
#include "trace_p.h"

#include <QtCore/QJsonObject>
#include <QtCore/QVariant>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

namespace Corvane {

/// A received call of HandleIntent, which is answered after the slot has returned.
struct ReceivedCall
{
    QDBusConnection connection;
    QDBusMessage message;
    Trace trace;

    /// Sends the result of a handler and the files that it names. If that is impossible, logs a warning, and sends an
    /// error with the name \a errorName.
    void reply(const QJsonObject &result, QVariantMap files, FileSharing::Mode mode, const QString &errorName) const;
    void fail(const QString &errorName, const QString &text) const;
};

} // namespace Corvane
