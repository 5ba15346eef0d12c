// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"
#include "incoming_intent.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>
#include <memory>

namespace Corvane {

class RuntimeDispatcherPrivate;

/**
 * Provides the identity of this process, and receives the intents that this process handles.
 *
 * \code
 * auto *dispatcher = Corvane::RuntimeDispatcher::instance();
 * dispatcher->registerIntentHandler(QStringLiteral("Greet"), [](const Corvane::IncomingIntent &intent) {
 *     const QString name = intent.params().value(QStringLiteral("name")).toString();
 *     if (name.isEmpty())
 *         intent.fail(QStringLiteral("There is no name"));
 *     else
 *         intent.reply({{QStringLiteral("text"), QStringLiteral("Hello, ") + name}});
 * });
 * if (const Corvane::Error error = dispatcher->startService())
 *     qFatal("Cannot receive intents: %s", qUtf8Printable(error.message()));
 * \endcode
 *
 * There is one dispatcher per process. Use it on the main thread, whose event loop delivers the intents. See also
 * docs/limits.md.
 */
class CORVANE_EXPORT RuntimeDispatcher : public QObject
{
    Q_OBJECT
public:
    /// Sends the reply to an intent. Call it at most once, inside the handler or later, on the dispatcher's thread.
    using ReplyFunction = std::function<void(const QJsonObject &result)>;
    /// Handles an intent. \a params contains the parameters of the caller.
    using IntentHandler = std::function<void(const QJsonObject &params, const ReplyFunction &reply)>;

    /**
     * Returns the dispatcher of this process. The first call creates it. The library never deletes it. An application
     * may delete it; the next call then creates another, which reads the environment again and has no handlers.
     */
    static RuntimeDispatcher *instance();

    /// Creates a dispatcher. instance() returns it until any dispatcher is deleted. Applications call instance()
    /// instead.
    RuntimeDispatcher();
    /// Removes all handlers. Does not release the bus name. The reply functions remain valid.
    ~RuntimeDispatcher() override;

    /// The id of the application (HALVIR_APP_ID); empty if the service did not start this process.
    QString applicationId() const;
    /// The id of this instance of the application (HALVIR_APP_INSTANCE_ID). startService() claims it as a bus name.
    QString applicationInstanceId() const;
    /// The id of the task that this process runs (HALVIR_TASK_ID); empty if it runs the application itself.
    QString taskId() const;

    /**
     * The file descriptor of the listening socket that the service created for this task. The function reads
     * HALVIR_TASK_FD at each call. It returns 0, which is also the number of standard input, if the variable is not set
     * or is not a number. TaskProcess checks the descriptor and creates the channel.
     */
    int localServerSocket() const;

    /**
     * Makes this process reachable for intents: registers the handler object on the bus, and claims
     * applicationInstanceId() as a bus name. Blocks until the bus has replied. Returns an error if there is no bus or
     * another object of this process is registered at the path of the handler object ("Registration failed"), if
     * applicationInstanceId() is empty because the service has not started this process, if another process owns the
     * name, or if the bus returns an error. The function may be called again.
     *
     * To call this function by name, use the return type "Error", as in the meta-object:
     * \code
     * Corvane::Error error;
     * QMetaObject::invokeMethod(dispatcher, "startService", QReturnArgument<Corvane::Error>("Error", error));
     * \endcode
     */
    Q_INVOKABLE Error startService();
    /// Releases the bus name, and blocks until the bus has replied. Succeeds if this process does not own the name. The
    /// handler object stays registered. Lifecycle::stopService() releases the same name.
    Q_INVOKABLE Error stopService();

    /// Calls \a callback at once if this process runs the application and not one of its tasks.
    /// \throws std::bad_function_call if the callback to call is empty
    void onApplicationStarted(const std::function<void()> &callback);
    /// Calls \a callback with the task id at once if this process runs the task \a taskName, or any task if \a taskName
    /// is empty. The callback may delete the dispatcher.
    /// \throws std::bad_function_call if the callback to call is empty
    void onTaskStarted(const QString &taskName, const std::function<void(const QString &taskId)> &callback);

    /**
     * Registers \a handler for the intent \a intentName. It replaces the earlier handler of either kind and its output
     * files.
     *
     * The handler gets a handle of the intent, and answers it inside the call or later: see IncomingIntent. The event
     * loop calls the handler once for each intent. The handler may register and unregister intents, and may delete the
     * dispatcher. An empty handler leaves each intent unanswered, so its caller gets an error. A handler must not
     * throw: the exception would end the event loop.
     */
    void registerIntentHandler(const QString &intentName, const std::function<void(Corvane::IncomingIntent)> &handler);

    /**
     * Registers a handler that gets the parameters and a reply function. It replaces the earlier handler of either kind
     * and its output files. The handler cannot fail: use registerIntentHandler() to reply with an error.
     *
     * The event loop calls the handler once for each intent. The handler may register and unregister intents, and may
     * delete the dispatcher. The destructors of its captures may do the same when the handler is replaced or removed.
     *
     * Call the reply function at most once. Each call sends a reply, but the bus or the caller drops all replies after
     * the first one. If the reply function is never called, the caller waits until its time-out. If the result is over
     * the limits of the bus (see IntentsInvoker::invoke()), the caller gets an error, and a warning is logged.
     *
     * An empty handler throws std::bad_function_call into the event loop when an intent arrives. An intent with an
     * empty name is never delivered.
     */
    void registerIntent(const QString &intentName, const IntentHandler &handler);
    /// Removes the handler. Its reply functions remain valid.
    void unregisterIntent(const QString &intentName);

    /**
     * Sets the paths of the values in a result that name files; see IntentsInvoker::invoke() for their syntax. When the
     * handler replies, the dispatcher opens these files, for reading or for reading and writing, and sends their file
     * descriptors with the reply. Call this function after each registration of the handler. Without a handler for \a
     * intentName, it only logs a warning.
     */
    void registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                   const QStringList &writeFiles);

private:
    const std::unique_ptr<RuntimeDispatcherPrivate> d;
};

} // namespace Corvane
