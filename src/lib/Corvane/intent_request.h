// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>

#include <chrono>
#include <functional>
#include <memory>

namespace Corvane {

class IntentRequestPrivate;

/**
 * One intent that was sent, and its reply.
 *
 * \code
 * auto *invoker = new Corvane::IntentsInvoker(this);
 * auto *request = invoker->request(QStringLiteral("PickFile"));
 * request->setAutoDelete(true);
 * request->then(this, [this](const QJsonObject &reply, const Corvane::Error &error) {
 *     if (error)
 *         showError(error.message());
 *     else
 *         open(reply.value(QStringLiteral("file")).toString());
 * });
 * \endcode
 *
 * IntentsInvoker::request() sends the intent and returns the request. The request is a child of the invoker, and is
 * deleted with it. It does not delete itself, unless setAutoDelete() is set. Deleting a request drops its reply.
 *
 * The request has no time-out unless setTimeout() is called. Therefore the user may take any time to answer a dialog.
 * cancel() and the time-out end the request only in this process: the handler is not notified, may continue, and its
 * reply is dropped.
 *
 * A request has finished when it has a reply or an error. finished() is always emitted from the event loop, never
 * inside request() or cancel(). After cancel(), isFinished() returns true before finished() is emitted. Use a request
 * on the thread of its invoker.
 *
 * In C++20, Corvane/coroutines.h makes it possible to write `co_await *invoker->request(...)`.
 */
class CORVANE_EXPORT IntentRequest : public QObject
{
    Q_OBJECT
    /// See intentName().
    Q_PROPERTY(QString intentName READ intentName CONSTANT)
    /// See state().
    Q_PROPERTY(State state READ state NOTIFY finished)
    /// See reply().
    Q_PROPERTY(QJsonObject reply READ reply NOTIFY finished)
    /// See error().
    Q_PROPERTY(Corvane::Error error READ error NOTIFY finished)
public:
    /// Whether and how a request has finished.
    enum State : int {
        Pending, ///< There is no result yet.
        Replied, ///< The handler has replied.
        Failed, ///< The intent could not be sent, the service or the handler replied with an error, or the bus was
                ///< lost.
        TimedOut, ///< The time of setTimeout() has passed.
        Canceled, ///< cancel() was called. If the user cancels a dialog of the handler, the handler replies or fails.
    };
    Q_ENUM(State)

    /// The result of a request. QDebug prints it.
    struct Result
    {
        State state = Pending; ///< Whether and how the request has finished.
        QJsonObject reply; ///< Empty unless the state is Replied.
        Error error; ///< An error if the state is Failed, TimedOut or Canceled.

        /// Prints the state, the reply and the error.
        friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const Result &result);
    };
    // Deleted, because both enumerations have an enumerator Failed: compare error() with Error::Code, and state() with
    // State.
    friend bool operator==(const Error &, State) = delete;
    friend bool operator==(State, const Error &) = delete;
    friend bool operator!=(const Error &, State) = delete;
    friend bool operator!=(State, const Error &) = delete;

    /// The type of the callbacks of then(). \a reply is empty if \a error is set.
    using Callback = std::function<void(const QJsonObject &reply, const Corvane::Error &error)>;

    /// Drops the reply and the callbacks. Does not emit finished().
    ~IntentRequest() override;

    /// The intent name that was sent.
    QString intentName() const;
    /// Returns whether and how the request has finished.
    State state() const;
    /// Returns whether the state is not Pending.
    bool isFinished() const;
    /// The reply of the handler; empty unless the state is Replied. It contains the names of files as the handler wrote
    /// them: the service receives their file descriptors, and decides how this process can open the files.
    QJsonObject reply() const;
    /// The error, if the state is Failed, TimedOut or Canceled. The code of a time-out and of a canceled request is
    /// Error::Failed; state() tells them apart.
    Error error() const;
    /// Returns state(), reply() and error().
    Result result() const;

    /**
     * Ends the request as TimedOut if it has not finished \a timeout after this call. Another call replaces the time. A
     * negative time removes it, which is the default. Has no effect on a finished request. The time has the
     * accuracy of Qt::CoarseTimer, 5 %. A time of more than 24 days is never reached.
     */
    void setTimeout(std::chrono::milliseconds timeout);

    /// Ends the request as Canceled at once; finished() is emitted later, from the event loop. Has no effect on a
    /// finished request.
    void cancel();

    /**
     * Calls \a callback once with the reply and the error when the request has finished, from the event loop. then()
     * may be called at any time, also on a finished request. Each call adds a callback.
     *
     * The callback is not called after \a context or the request is deleted. It may delete both. \a context lives on
     * the thread of the request; if it is null, the request is the context. An empty callback is ignored.
     * A callback that has to distinguish a time-out from another error calls state().
     */
    void then(QObject *context, const Callback &callback);

    /// Whether deleteLater() is called after finished() was emitted; false by default. If the request has already
    /// finished, setAutoDelete(true) calls deleteLater() immediately.
    bool autoDelete() const;
    /// See autoDelete().
    void setAutoDelete(bool autoDelete);

Q_SIGNALS:
    /**
     * Emitted once, from the event loop, when the request has finished. It is not emitted again for a slot that is
     * connected later: check isFinished(), or use then(). A slot may delete the request and the invoker.
     */
    void finished();

private:
    friend class IntentsInvoker;
    IntentRequest(const QString &intentName, QObject *parent);

    const std::unique_ptr<IntentRequestPrivate> d;
};

} // namespace Corvane
