// SPDX-License-Identifier: BSD-3-Clause
#pragma once

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

    enum class Files {
        Optional, ///< The reply is sent without the files that cannot be opened.
        Required, ///< The caller gets an error if a file cannot be opened.
    };
    /// Sends the result of a handler and the files that it names. If that is impossible, logs a warning, and sends an
    /// error with the name \a errorName.
    void reply(const QJsonObject &result, QVariantMap files, Files mode, const QString &errorName) const;
    void fail(const QString &errorName, const QString &text) const;
};

} // namespace Corvane
