// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QStringList>

/**
 * Paths into JSON objects: "uri[*]", "files[0].path", "a.*.b", "list[-1]".
 *
 * A key runs to the next '.' or '['; "*" stands for every key, "[*]" for every element; a negative index counts from
 * the end. Keys that are empty, are "*", or contain '.' or '[' cannot be named. Syntax errors are logged with qDebug
 * and end the path there.
 */
namespace Core::JsonPath {

/// What \a path leads to: null for a missing key, undefined for an index beyond the array. Wildcards are passed over.
QJsonValue value(const QJsonObject &root, const QString &path);

/// The paths without wildcards that \a path stands for in \a root, in the order of the document.
QStringList expand(const QJsonObject &root, const QString &path);

} // namespace Core::JsonPath
