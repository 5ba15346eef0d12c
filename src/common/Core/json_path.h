// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QStringList>

/**
 * Paths into JSON objects: "uri[*]", "files[0].path", "a.*.b", "list[-1]".
 *
 * A key ends before the next '.' or '['. "*" selects every key, "[*]" every element. A negative index counts from the
 * end. A path cannot name keys that are empty, are "*", or contain '.' or '['. A syntax error is logged with qDebug()
 * and ends the path.
 */
namespace Core::JsonPath {

enum Element : int { End = 0, Key = 1, Index = 2, AnyKey = 3, AnyIndex = 4 };

/**
 * Removes the first element, and the dots before it, from \a path and returns its kind.
 *
 * Stores the key in \a key or the number in \a index; the wildcards store nothing. Returns End when no element is left,
 * and after a syntax error: an unclosed bracket stays in \a path, an index that is no number is removed.
 */
Element nextPathElement(QString &path, QString *key, int *index);

/// Returns the value at \a path: null for a missing key, undefined for an index out of range. Ignores wildcards.
QJsonValue value(const QJsonObject &root, const QString &path);

/// Returns the paths of all values in \a root that match \a path, without wildcards, in the order of the document.
QStringList expand(const QJsonObject &root, const QString &path);

} // namespace Core::JsonPath

namespace Core {

using JsonPath::Element;
using JsonPath::nextPathElement;

} // namespace Core
