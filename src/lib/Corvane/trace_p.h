// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonObject>
#include <QtCore/QLoggingCategory>

#include <memory>

namespace Corvane {

/// The logging category "corvane.trace", which is off by default.
const QLoggingCategory &traceCategory();

inline bool isTracing()
{
    return Q_UNLIKELY(traceCategory().isDebugEnabled());
}

/**
 * Logs a line when an operation begins and a line when it ends, with its number, its name, sizes and the outcome. Never
 * logs the contents of messages. Copies trace the same operation. If the last copy is destroyed before the end, the
 * outcome is "dropped".
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
        Trace trace;
        if (isTracing())
            trace.m_operation = std::make_shared<Operation>(operation, name, size());
        return trace;
    }

    /// Ends the operation, once. Does nothing if the category was not enabled when the operation began.
    template<typename GetSize>
    void end(const Error &error, GetSize size) const
    {
        if (Q_UNLIKELY(m_operation))
            m_operation->end(error, size());
    }
    void end(const char *outcome) const
    {
        if (Q_UNLIKELY(m_operation))
            m_operation->end(outcome);
    }
    bool isOn() const { return bool(m_operation); }

private:
    class Operation
    {
    public:
        Operation(const char *operation, const QString &name, const Size &size);
        ~Operation();
        Q_DISABLE_COPY(Operation)

        void end(const Error &error, const Size &size);
        void end(const char *outcome);

    private:
        const char *const m_kind;
        const quint64 m_number;
        QElapsedTimer m_timer;
        bool m_hasEnded = false;
    };

    std::shared_ptr<Operation> m_operation; // null if the category is off
};

/// Returns the size of a received reply, without its files.
Trace::Size sizeOfReply(const QJsonObject &reply);
/// Returns the size of a received intent.
Trace::Size sizeOfIntent(const QString &intentName, const QJsonObject &params);

} // namespace Corvane
