// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtCore/QUrl>

#include <memory>

namespace Corvane {

class IntentsInvokerPrivate;

/**
 * Asks the service to run intents: named requests that it routes to whichever application handles them.
 *
 * \code
 * auto *invoker = new Corvane::IntentsInvoker(this);
 * connect(invoker, &Corvane::IntentsInvoker::replyReceived, this, &Window::showReply);
 * invoker->invoke(QStringLiteral("OpenURI"), {}, {{QStringLiteral("uri"), QStringLiteral("file:///tmp/a.txt")}});
 * \endcode
 *
 * Any number of calls may be in flight at once. Replies come in the order in which they complete, and a reply does not
 * say which call it belongs to: use an invoker for each call where that matters.
 *
 * Use an invoker on the thread that made it, which needs a running event loop. The constructor asks the bus once,
 * blocking, who owns the service's name; nothing else here blocks.
 */
class CORVANE_EXPORT IntentsInvoker : public QObject
{
    Q_OBJECT
public:
    explicit IntentsInvoker(QObject *parent = nullptr);
    /// Drops the replies that have not come yet.
    ~IntentsInvoker() override;

    /**
     * Sends the intent \a intentName and returns at once; replyReceived() tells the outcome, later, exactly once.
     *
     * \a params are the values of the intent, as its handler receives them. \a hints are for the service. Two of them
     * name files: "readFiles" and "writeFiles" hold paths into \a params ("file", "list[0].name", "list[*]") of plain
     * file names and file: URLs. These files are opened here, for reading or for reading and writing (a missing one is
     * then created), and travel as descriptors. For the intent "OpenURI", "readFiles" is always what \a params hold
     * under "uri". Keys that contain '.', '[' or are "*" cannot be named by a path. A file that cannot be opened is
     * logged, ends its list, and does not keep the intent from being sent.
     *
     * Numbers travel as doubles. Values that D-Bus cannot carry (null, an array of arrays or of nulls) are left out,
     * with a warning. An intent that the bus would not let pass fails with Error::Failed and is not sent: one that
     * nests more than 64 containers (an object counts as three, an array of one type as one, a mixed one as two),
     * holds an array or object of more than 64 MiB, is longer than 128 MiB in all, shares more than 16 files, or has
     * U+0000 in a text. A call that is not answered fails after 86.4 seconds.
     */
    void invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

    /**
     * Writes an intent as a URI such as "intent://?h=B.true#Intent;name=OpenURI;count=d.2;uri=S.file:///a.txt;end".
     *
     * Only booleans, numbers (six significant digits) and strings without ';' can be written, and \a intentName must
     * not be empty; for anything else the URL is empty, and a warning says why where the value is to blame.
     */
    static QUrl intentToUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

Q_SIGNALS:
    /**
     * An intent has been answered, or has failed. Emitted once for each invoke(), from the event loop.
     *
     * \a reply is what the handler answered; it is empty if \a error is set. The invoker may be deleted in here.
     * A queued connection and QSignalSpy need registerMetaTypes().
     */
    void replyReceived(const QJsonObject &reply, const Corvane::Error &error);

private:
    const std::unique_ptr<IntentsInvokerPrivate> d;
};

} // namespace Corvane
