// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/// Finds params that do not arrive unchanged. The rules are those of docs/limits.md and of the public headers.
namespace Travel {

enum class Effect : int {
    Changed, ///< Another value arrives.
    Omitted, ///< The value does not arrive.
    Refused, ///< The library does not send the message.
    NotInUri, ///< An intent URI cannot contain the value.
};

struct Problem
{
    QString path; ///< Such as "list[0].name". A key that is not possible in a JSON path is quoted: ["a.b"].
    Effect effect;
    QString reason;
    int line = 0; ///< The line of the text; 0 if it is unknown.
};

/// Returns the values that are changed, omitted, or make the library refuse the message.
QVector<Problem> problemsOfValues(const QJsonObject &params);
/// Returns the files at these JSON paths that are too many for a message.
QVector<Problem> problemsOfFiles(const QJsonObject &params, const QStringList &paths);
/// Returns the values that a URI cannot contain.
QVector<Problem> problemsOfUri(const QJsonObject &params);
/// Returns the keys and numbers that reading the text changes. The text is a valid JSON object.
QVector<Problem> problemsOfText(const QByteArray &text);

} // namespace Travel
