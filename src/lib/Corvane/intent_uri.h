// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QJsonObject>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtCore/qobjectdefs.h>

namespace Corvane {

/**
 * Reads an intent that is written as a URI.
 *
 * \code
 * const Corvane::IntentUri intent(QUrl(QStringLiteral("intent://#Intent;name=Show;page=d.2;end")));
 * if (intent.error())
 *     qWarning() << intent.error();
 * else
 *     invoker->invoke(intent.intentName(), intent.hints(), intent.params());
 * \endcode
 *
 * IntentsInvoker::intentToUri() writes such URIs and describes their form. Integers ("i.2") are read too.
 *
 * A URI from outside (a message, a web page, a scanned code) is untrusted. Hints named "readFiles" and "writeFiles"
 * select files of this process that are sent to the other application. They are removed unless KeepFileHints is set.
 * The intent name and the parameters are not checked: do not invoke an intent that the application does not expect. For
 * the intent "OpenURI", the parameter "uri" selects a file.
 *
 * IntentUri is a value class and a gadget. It logs nothing, and uses neither the bus nor the file system. Threads may
 * pass copies to each other.
 */
class CORVANE_EXPORT IntentUri
{
    Q_GADGET
    /// See intentName().
    Q_PROPERTY(QString intentName READ intentName)
    /// See hints().
    Q_PROPERTY(QJsonObject hints READ hints)
    /// See params().
    Q_PROPERTY(QJsonObject params READ params)
    /// See error().
    Q_PROPERTY(Corvane::Error error READ error)
public:
    /// The handling of the hints that select files of this process.
    enum FileHints : int {
        RemoveFileHints, ///< Remove the hints "readFiles" and "writeFiles".
        KeepFileHints, ///< Keep all hints. Use it only for URIs that the application has written itself.
    };
    Q_ENUM(FileHints)

    /// The same as reading an empty URL.
    IntentUri();
    /// Reads \a uri. error() returns the result.
    explicit IntentUri(const QUrl &uri, FileHints fileHints = RemoveFileHints);

    /**
     * Returns Error::InvalidArgs if the URI cannot be read, with a message that names the invalid part. The reasons are
     * an invalid URL, another scheme than "intent", a fragment that does not begin with "Intent;name=" or does not end
     * with "end", an empty intent name, and a parameter that has no key or no valid value. An invalid hint is not an
     * error.
     */
    Error error() const { return m_error; }
    /// The intent name; empty if error() is set.
    QString intentName() const { return m_intentName; }
    /// The hints, without "readFiles" and "writeFiles" unless KeepFileHints was set. An invalid value is a null. Empty
    /// if error() is set.
    QJsonObject hints() const { return m_hints; }
    /// The parameters. Empty if error() is set.
    QJsonObject params() const { return m_params; }

    /**
     * Checks whether IntentsInvoker::intentToUri() can write an intent and whether the URI reads back as the same
     * intent. If not, returns Error::InvalidArgs with a message that names the hint or parameter that prevents it.
     *
     * A value that is a null, an array, an object, or a string with ';' cannot be written. Other intents are
     * written, but reading the URI fails or returns other values: an intent name with ';', a parameter with an empty
     * key or a key with ';' or '=', a number with more than six significant digits, and a string with '%', a line break
     * or, in a parameter, '#'.
     */
    static Error check(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

    /// Prints the intent, or its error.
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const IntentUri &intent);

private:
    QString m_intentName;
    QJsonObject m_hints;
    QJsonObject m_params;
    Error m_error;
};

} // namespace Corvane

Q_DECLARE_METATYPE(Corvane::IntentUri)
