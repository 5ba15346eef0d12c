// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>
#include <memory>

namespace Corvane {

class RuntimeDispatcherPrivate;

/**
 * This process as the service sees it: who it is, why it was started, and the intents that it handles.
 *
 * \code
 * auto *dispatcher = Corvane::RuntimeDispatcher::instance();
 * dispatcher->registerIntent(QStringLiteral("Greet"), [](const QJsonObject &params, const auto &reply) {
 *     reply({{QStringLiteral("text"), QStringLiteral("Hello, ") + params[QStringLiteral("name")].toString()}});
 * });
 * if (const Corvane::Error error = dispatcher->startService())
 *     qFatal("Cannot receive intents: %s", qUtf8Printable(error.message()));
 * \endcode
 *
 * One for each process, to be used on the main thread, whose event loop delivers the intents.
 */
class CORVANE_EXPORT RuntimeDispatcher : public QObject
{
    Q_OBJECT
public:
    /// Answers the intent with a JSON object. To be called at most once, now or later, on the dispatcher's thread.
    using ReplyFunction = std::function<void(const QJsonObject &result)>;
    /// Handles an intent. The object is what the caller gave as its parameters.
    using IntentHandler = std::function<void(const QJsonObject &params, const ReplyFunction &reply)>;

    /**
     * The dispatcher of this process, made on first use. The library never deletes it; the application may, and the
     * next call then makes a new one, which reads the environment again and handles nothing yet.
     */
    static RuntimeDispatcher *instance();

    /// Makes a dispatcher and has instance() return it, until any dispatcher is deleted. Applications call instance()
    /// instead.
    RuntimeDispatcher();
    ~RuntimeDispatcher() override;

    /// The id of the application, as the service gave it when it started the process; empty if it did not.
    QString applicationId() const;
    /// The id of this instance of the application, which is also its bus name while startService() holds it.
    QString applicationInstanceId() const;
    /// The id of the task that this process runs; empty if it runs the application itself.
    QString taskId() const;

    /**
     * The descriptor of the listening socket that the service prepared for this task (HALVIR_TASK_FD, read at each
     * call). It is 0 if there is none, or if the variable holds anything but a number.
     */
    int localServerSocket() const;

    /**
     * Makes this process reachable for intents: exports the handler object and claims applicationInstanceId() as a bus
     * name. Blocks until the bus has answered. Fails if the handler object's path is taken on this connection
     * ("Registration failed"), if another process holds the name, or with what the bus says. May be called again.
     *
     * Call it by name with the return type spelled as the meta-object has it:
     * \code
     * Corvane::Error error;
     * QMetaObject::invokeMethod(dispatcher, "startService", QReturnArgument<Corvane::Error>("Error", error));
     * \endcode
     */
    Q_INVOKABLE Error startService();
    /// Releases the bus name; the service no longer reaches this process. Blocks until the bus has answered.
    /// A name that was not held is no error.
    Q_INVOKABLE Error stopService();

    /// Calls \a callback, now, if this process runs the application and not one of its tasks.
    /// \throws std::bad_function_call if it would call an empty one.
    void onApplicationStarted(const std::function<void()> &callback);
    /// Calls \a callback with the task id, now, if this process runs the task \a taskName (any task if that is empty).
    /// The callback may delete the dispatcher.
    /// \throws std::bad_function_call if it would call an empty one.
    void onTaskStarted(const QString &taskName, const std::function<void(const QString &taskId)> &callback);

    /**
     * Has \a handler answer the intents named \a intentName, in place of any earlier handler and its output files.
     *
     * The handler runs from the event loop, once for each intent. It may delete the dispatcher, register and
     * unregister; so may the destructors of its captures when it is replaced or removed. Calling its reply function
     * sends the reply. Call it at most once: the caller receives one reply, and it depends on the bus whether a further
     * one is dropped there or by the caller. A caller whose handler never replies waits for its time-out. A result that
     * the bus would not let pass (see IntentsInvoker::invoke() for the limits) is reported to the caller as an error,
     * and logged.
     *
     * An empty handler throws std::bad_function_call into the event loop when an intent arrives. An intent with an
     * empty name is never delivered.
     */
    void registerIntent(const QString &intentName, const IntentHandler &handler);
    /// Forgets the handler. Reply functions that were handed out before stay valid.
    void unregisterIntent(const QString &intentName);

    /**
     * Says where results of the intent name files: paths into the result, as in IntentsInvoker::invoke(). When the
     * handler replies, these files are opened, for reading or for reading and writing, and travel with the reply.
     * Call it after registerIntent(), each time; without a handler of that name it only logs a warning.
     */
    void registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                   const QStringList &writeFiles);

private:
    const std::unique_ptr<RuntimeDispatcherPrivate> d;
};

} // namespace Corvane
