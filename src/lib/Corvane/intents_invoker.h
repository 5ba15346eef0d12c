// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"
#include "intent_uri.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QUrl>

#include <memory>

namespace Corvane {

class IntentRequest;
class IntentsInvokerPrivate;

/**
 * Invokes intents: named requests that the service routes to the application that handles them.
 *
 * \code
 * auto *invoker = new Corvane::IntentsInvoker(this);
 * auto *request =
 *     invoker->request(QStringLiteral("OpenURI"), {{QStringLiteral("uri"), QStringLiteral("file:///tmp/a.txt")}});
 * request->setAutoDelete(true);
 * request->then(this, [](const QJsonObject &reply, const Corvane::Error &error) { qInfo() << reply << error; });
 * \endcode
 *
 * request() returns an IntentRequest, which identifies the reply, can be canceled, and has no time-out by default.
 * invoke() is the simple form: it has a fixed time-out, and reports all replies by one signal.
 *
 * Any number of intents may be in flight at once. They finish in any order.
 *
 * Use an invoker on the thread that created it; the thread needs a running event loop. The constructor blocks until the
 * bus has returned the owner of the service's name. No other function blocks.
 *
 * See also docs/limits.md.
 */
class CORVANE_EXPORT IntentsInvoker : public QObject
{
    Q_OBJECT
public:
    /// Creates an invoker. Without a bus, all calls fail.
    explicit IntentsInvoker(QObject *parent = nullptr);
    /// Drops the replies of all calls in flight, and deletes the requests.
    ~IntentsInvoker() override;

    /**
     * Sends the intent \a intentName and returns at once. replyReceived() is emitted exactly once, later.
     *
     * \a params contains the values that the handler receives. \a hints is for the service. The hints "readFiles" and
     * "writeFiles" are lists of paths into \a params, such as "file", "list[0].name" or "list[*]". The values at these
     * paths are plain file names or file: URLs. invoke() opens the files and sends their file descriptors. Files in
     * "readFiles" are opened for reading. Files in "writeFiles" are opened for reading and writing, and missing ones
     * are created. The service receives the file descriptors, and makes the files available to the handler; the
     * parameters are sent unchanged. For the intent "OpenURI", "readFiles" always selects the value at "uri", or its
     * elements. A path cannot name a key that is empty, is "*", or contains '.' or '['. If a file cannot be opened, a
     * warning is logged and the later files of its list are skipped; the intent is still sent.
     *
     * Numbers are sent as doubles. Values that D-Bus cannot represent (a null, an array of arrays or of nulls) are
     * omitted, with a warning. An intent over the limits of the bus is not sent and fails with Error::Failed. The
     * limits are 63 nested containers (an object with members counts as three, a mixed array as two, any other array
     * or object as one), 64 MiB in an array or object, 128 MiB in all, 16 files, and no U+0000 in a string. A call
     * without a reply fails after 86.4 seconds.
     *
     * replyReceived() does not identify the call: use request() to distinguish the replies.
     */
    void invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

    /**
     * Sends the intent \a intentName and returns the request, a child of this object. Never returns null. The request
     * finishes later, from the event loop.
     *
     * The message is the same as that of invoke(), with two differences. If a file cannot be opened, nothing is sent:
     * the request fails with a message that names the file and the reason. The call has no time-out: see
     * IntentRequest::setTimeout().
     */
    IntentRequest *request(const QString &intentName, const QJsonObject &params = {});
    /// Does the same with hints. The arguments are in the same order as those of invoke().
    IntentRequest *request(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);
    /// Sends an intent that was read from a URI. If it could not be read, the request fails with IntentUri::error().
    IntentRequest *request(const IntentUri &intent);
    /// Sends the intent that \a uri contains, without the hints that select files. See IntentUri for the risk of URIs
    /// from outside. If \a uri cannot be read, the request fails. A URI in a QString is an intent name: pass a QUrl.
    IntentRequest *request(const QUrl &uri);

    /**
     * Returns an intent as a URI such as "intent://?h=B.true#Intent;name=OpenURI;count=d.2;uri=S.file:///a.txt;end".
     *
     * The values may be booleans, numbers (written with six significant digits) and strings without ';'. Keys are not
     * escaped: those with ';' or '=' cannot be read back. The URL is empty if \a intentName is empty or if a value
     * cannot be written; a warning names the reason, except for a null. IntentUri::check() returns the reason, and
     * IntentUri reads the URIs.
     */
    static QUrl intentToUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

Q_SIGNALS:
    /**
     * Emitted once for each invoke(), from the event loop, when the reply was received or the call has failed.
     *
     * \a reply is the reply of the handler, or empty if \a error is set. A slot may delete the invoker. Queued
     * connections and QSignalSpy need registerMetaTypes().
     */
    void replyReceived(const QJsonObject &reply, const Corvane::Error &error);

private:
    const std::unique_ptr<IntentsInvokerPrivate> d;
};

} // namespace Corvane
