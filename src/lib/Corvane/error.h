// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/qobjectdefs.h>

class QDebug;

namespace Corvane {

class [[nodiscard]] Error; // GCC 12 rejects CORVANE_EXPORT beside [[nodiscard]], and moc rejects both as attributes

/**
 * The result of an operation: a code and a human-readable message.
 *
 * Error is a value class, and a gadget: the meta-object system reads its properties. Threads may pass copies to each
 * other. A default-constructed Error means success. An Error converts to true if the operation failed:
 * \code
 * if (const Corvane::Error error = dispatcher->startService())
 *     qWarning() << "Cannot receive intents:" << error;
 * \endcode
 *
 * docs/service.md lists the bus error names that have a code.
 */
class CORVANE_EXPORT Error
{
    Q_GADGET
    /// The code as a number. See code().
    Q_PROPERTY(int code READ code) // a number: the enumeration is not in the meta-object system
    /// See message().
    Q_PROPERTY(QString message READ message)
public:
    /// The kind of a failure.
    enum Code : int {
        NoError = 0, ///< Success.
        Failed = 1, ///< Any failure without its own code: no bus, a time-out, an unknown error name.
        HandlerNotFound = 2, ///< No application handles the intent.
        HandlerFailed = 3, ///< The application that handles the intent replied with an error, or has ended.
        InvalidArgs = 4, ///< The arguments of the request are invalid.
        NotSupported = 5, ///< The receiver does not support the request.
        AccessDenied = 6, ///< The caller has no permission for the request.
        ProcessNotHandled = 7, ///< The service does not know the calling process.
        ApplicationNotRunning = 8, ///< The application of the request is not running.
        ApplicationAlreadyRunning = 9, ///< The application of the request is already running.
        ApplicationAlreadyLaunching = 10, ///< The service is already launching the application of the request.
    };

    /// Creates an error. Stores \a code and \a message unchanged.
    Error(Code code = NoError, const QString &message = QString());

    /// Returns the code; NoError on success.
    Code code() const;
    /// The message of the error, unchanged and not translated; usually empty on success. Do not parse it.
    QString message() const;

    /// Returns true if the operation failed, that is, if the code is not NoError.
    bool isError() const;
    /// Returns isError().
    operator bool() const;

    /// Returns true if \a error has the code \a code. Ignores the message.
    friend bool operator==(const Error &error, Code code) { return error.m_code == code; }
    /// \overload
    friend bool operator==(Code code, const Error &error) { return error == code; }
    /// Returns true if \a error has another code than \a code. Ignores the message.
    friend bool operator!=(const Error &error, Code code) { return !(error == code); }
    /// \overload
    friend bool operator!=(Code code, const Error &error) { return !(error == code); }
    /// Returns true if the codes and the messages are equal.
    friend bool operator==(const Error &a, const Error &b) { return a == b.m_code && a.m_message == b.m_message; }
    /// Returns true if the codes or the messages differ.
    friend bool operator!=(const Error &a, const Error &b) { return !(a == b); }

    /// Prints an error such as Corvane::Error(Failed, "message").
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const Error &error);
    /// Prints the name of the code, such as Corvane::Error::Failed. An unknown number prints as
    /// Corvane::Error::Code(300); the enumerators of the other classes print in the same way.
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, Code code);

private:
    Code m_code;
    QString m_message;
};

} // namespace Corvane

Q_DECLARE_METATYPE(Corvane::Error)
