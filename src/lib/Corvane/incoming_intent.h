// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QJsonObject>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/qobjectdefs.h>

#include <memory>

class QDebug;

namespace Corvane {

class IncomingIntentPrivate;

/**
 * One intent that this process has received, and the means to answer it.
 *
 * \code
 * dispatcher->registerIntentHandler(QStringLiteral("PickFile"), [this](const Corvane::IncomingIntent &intent) {
 *     auto *dialog = new QFileDialog(this);
 *     dialog->setAttribute(Qt::WA_DeleteOnClose);
 *     connect(dialog, &QFileDialog::fileSelected, this, [intent](const QString &file) {
 *         intent.reply({{QStringLiteral("file"), file}});
 *     });
 *     connect(dialog, &QFileDialog::rejected, this, [intent] { intent.reply(); }); // no file
 *     dialog->open();
 * });
 * \endcode
 *
 * The dispatcher passes the object to the function of RuntimeDispatcher::registerIntentHandler(). All copies of the
 * object are handles of the same intent. Keep a copy to answer the intent later.
 *
 * Each intent is answered once, by reply() or fail(). If the last copy is destroyed without an answer, the caller gets
 * the error "The handler of "NAME" ended without a reply". The handler is not notified if the caller cancels its
 * request, stops waiting or ends. An intent can be answered after its handler was unregistered and after the dispatcher
 * was deleted.
 *
 * The functions may be called on any thread; as usual, threads must not use the same object at the same time, but may
 * use copies. The answer is converted and sent on the thread of the dispatcher: at once if the function is called on
 * that thread, otherwise later, from its event loop. An answer from another thread is lost if that event loop does not
 * run again.
 */
class CORVANE_EXPORT IncomingIntent
{
    Q_GADGET
    /// See intentName().
    Q_PROPERTY(QString intentName READ intentName)
    /// See params().
    Q_PROPERTY(QJsonObject params READ params)
    /// See isAnswered().
    Q_PROPERTY(bool answered READ isAnswered)
public:
    /// Creates a handle without an intent. isAnswered() returns true; intentName() and params() are empty.
    IncomingIntent();

    /// The intent name that the caller has sent.
    QString intentName() const;
    /// The parameters that the caller has sent. They are untrusted. They contain the names of files as the caller wrote
    /// them: the service receives their file descriptors, and decides how this process can open the files.
    QJsonObject params() const;

    /// Returns whether reply() or fail() was called on a copy of this object.
    bool isAnswered() const;

    /**
     * Sends \a result to the caller. If the intent is already answered, only logs a warning.
     *
     * If a file of setOutputFiles() cannot be opened, the caller gets an error that names the file and the reason. If
     * the result is over the limits of the bus (see IntentsInvoker::invoke()), the caller gets an error too. Both log a
     * warning. Values that D-Bus cannot represent are omitted, with a warning.
     */
    void reply(const QJsonObject &result = {}) const;

    /// Sends an error with the code Error::HandlerFailed and the message \a text to the caller. If the intent is
    /// already answered, only logs a warning.
    void fail(const QString &text) const;

    /**
     * Sets the paths of the values in the result that name files; see IntentsInvoker::invoke() for their syntax.
     * reply() opens these files, for reading or for reading and writing, and sends their file descriptors. The lists
     * replace those of RuntimeDispatcher::registerIntentOutputFiles() for this intent. Call it on the thread that calls
     * reply().
     */
    void setOutputFiles(const QStringList &readFiles, const QStringList &writeFiles = {}) const;

    /// Returns true if both are handles of the same intent.
    friend bool operator==(const IncomingIntent &a, const IncomingIntent &b) { return a.d == b.d; }
    /// Returns true if they are handles of different intents.
    friend bool operator!=(const IncomingIntent &a, const IncomingIntent &b) { return !(a == b); }

    /// Prints the intent name and whether the intent is answered.
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const IncomingIntent &intent);

private:
    friend class RuntimeDispatcherPrivate;
    explicit IncomingIntent(std::shared_ptr<IncomingIntentPrivate> intent);
    bool startAnswer() const;

    std::shared_ptr<IncomingIntentPrivate> d;
};

} // namespace Corvane

Q_DECLARE_METATYPE(Corvane::IncomingIntent)
