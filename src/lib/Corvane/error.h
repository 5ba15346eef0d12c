// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Corvane {

/**
 * The result of an operation: a code and a human-readable message.
 *
 * Error is a value class; threads may pass copies to each other. A default-constructed Error means success. An Error
 * converts to true if the operation failed:
 * \code
 * if (const Corvane::Error error = dispatcher->startService())
 *     qWarning() << "Cannot receive intents:" << error.message();
 * \endcode
 *
 * docs/compatibility.md lists the bus error names that have a code.
 */
class [[nodiscard]] [[gnu::visibility("default")]] Error // GCC 12 rejects CORVANE_EXPORT beside [[nodiscard]]
{
public:
    enum Code : int {
        NoError = 0,
        Failed = 1, ///< Any failure without its own code: no bus, a time-out, an unknown error name.
        HandlerNotFound = 2, ///< No application handles the intent.
        HandlerFailed = 3, ///< The application that handles the intent replied with an error, or ended.
        InvalidArgs = 4,
        NotSupported = 5,
        AccessDenied = 6,
        ProcessNotHandled = 7, ///< The service does not know the calling process.
        ApplicationNotRunning = 8,
        ApplicationAlreadyRunning = 9,
        ApplicationAlreadyLaunching = 10,
    };

    Error(Code code = NoError, const QString &message = QString());

    Code code() const;
    /// The message of the error, unchanged and not translated; usually empty on success. Do not parse it.
    QString message() const;

    /// Returns true if the operation failed, that is, if the code is not NoError.
    bool isError() const;
    /// Returns isError().
    operator bool() const;

    /// Returns true if \a error has the code \a code. Ignores the message.
    friend bool operator==(const Error &error, Code code)
    {
        return error.m_code == code;
    }
    friend bool operator==(Code code, const Error &error)
    {
        return error == code;
    }
    friend bool operator!=(const Error &error, Code code)
    {
        return !(error == code);
    }
    friend bool operator!=(Code code, const Error &error)
    {
        return !(error == code);
    }
    /// Returns true if the codes and the messages are equal.
    friend bool operator==(const Error &a, const Error &b)
    {
        return a == b.m_code && a.m_message == b.m_message;
    }
    friend bool operator!=(const Error &a, const Error &b)
    {
        return !(a == b);
    }

private:
    Code m_code;
    QString m_message;
};

} // namespace Corvane

Q_DECLARE_METATYPE(Corvane::Error)
