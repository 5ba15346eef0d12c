// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QUrl>

#include <tuple>

/**
 * Intents as URIs: "intent://?hint=B.true#Intent;name=OpenURI;count=d.2;uri=S.file:///tmp/a.txt;end".
 *
 * A letter before each value names its type: B for booleans, d for numbers, S for strings, i for integers (read only).
 * Only QUrl and QUrlQuery escape characters. A key with ';' or '=' is written but cannot be read back. Some characters
 * of texts ('%', line breaks, and '#' in params) are read back percent-encoded.
 */
namespace Core::IntentUri {

enum class ValueFault { None, Semicolon, Container, Null };

/// Returns the reason why a value cannot be written.
ValueFault faultOf(const QJsonValue &value);

/// The result of reading a URI: an intent, or the reason why the URI is invalid.
struct Intent
{
    enum class Fault { None, InvalidUrl, WrongScheme, WrongFragment, InvalidParam };

    Fault fault = Fault::None;
    QString name;
    QJsonObject hints; ///< A hint that cannot be read is null.
    QJsonObject params;
    QString invalidParam; ///< The part of the fragment that is not a param.
};

/// Reads a URI and logs nothing.
Intent read(const QUrl &uri);

/// Returns an empty URL if the name is empty or a value cannot be written. Logs a warning unless the value is null.
QUrl toUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

/// Returns the name, hints and params. Returns empty ones and logs a warning if \a uri is not an intent. A hint that
/// cannot be read is null.
std::tuple<QString, QJsonObject, QJsonObject> fromUri(const QUrl &uri);

} // namespace Core::IntentUri
