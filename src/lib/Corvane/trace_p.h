// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QLoggingCategory>

namespace Corvane {

/// The logging category "corvane.trace", which is off by default.
const QLoggingCategory &traceCategory();

inline bool isTracing()
{
    return Q_UNLIKELY(traceCategory().isDebugEnabled());
}

/**
 * Logs a line when an operation begins and a line when it ends, with its number, its name, sizes and the outcome. Never
 * logs the contents of messages.
 */
class Trace
{
public:
    /// The size of a message.
    struct Size
    {
        qint64 bytes = 0;
        int descriptors = 0;
    };

    /// Logs nothing.
    Trace() = default;

    /// Begins an operation such as "request". \a size is called only if the category is enabled.
    template<typename GetSize>
    static Trace begin(const char *operation, const QString &name, GetSize size)
    {
        return isTracing() ? Trace(operation, name, size()) : Trace();
    }

    /// Ends the operation. Does nothing if the category was not enabled when the operation began.
    template<typename GetSize>
    void end(const Error &error, GetSize size) const
    {
        if (Q_UNLIKELY(m_operation))
            logEnd(error, size());
    }
    void end(const char *outcome) const
    {
        if (Q_UNLIKELY(m_operation))
            logEnd(outcome);
    }
    bool isOn() const { return m_operation; }

private:
    Trace(const char *operation, const QString &name, const Size &size);
    void logEnd(const Error &error, const Size &size) const;
    void logEnd(const char *outcome) const;

    const char *m_operation = nullptr;
    quint64 m_number = 0;
    QElapsedTimer m_timer;
};

/// Returns the size of a received reply, without its files.
Trace::Size sizeOfReply(const QJsonObject &reply);
/// Returns the size of a received intent.
Trace::Size sizeOfIntent(const QString &intentName, const QJsonObject &params);

} // namespace Corvane
