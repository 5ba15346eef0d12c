// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Corvane {

/**
 * The outcome of an operation: a code, and a text for people.
 *
 * A plain value; copies may travel between threads. A default-made Error means success:
 * \code
 * if (const Corvane::Error error = dispatcher->startService())
 *     qWarning() << "Cannot receive intents:" << error.message();
 * \endcode
 */
class [[nodiscard]] [[gnu::visibility("default")]] Error // GCC 12 takes no CORVANE_EXPORT beside [[nodiscard]]
{
public:
    enum Code : int {
        NoError = 0,
        Failed = 1, ///< Any failure without a code of its own: no bus, no answer in time, an error unknown here.
        HandlerNotFound = 2, ///< No application handles the intent.
        HandlerFailed = 3, ///< The application that handles the intent answered with an error, or vanished.
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
    /// The text that came with the error, unchanged; usually empty on success. Not translated, not for parsing.
    QString message() const;

    /// True if something went wrong: the code is not NoError.
    bool isError() const;
    /// The same as isError().
    operator bool() const;

    /// Whether the error has this code, whatever its message.
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
    /// Whether both the codes and the messages are the same.
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
