// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace Fuzz {

/// Returns whether the value contains, at any depth, a key that a path cannot name.
bool hasAmbiguousKeys(const QJsonValue &value);

/// Returns the path and the value of each match of a path with wildcards. A path contains ambiguous keys without
/// escapes, and may then be the path of another value.
QVector<QPair<QString, QJsonValue>> matches(const QJsonObject &root, const QString &path);

/// Returns the value at a path. Ignores wildcards.
QJsonValue valueAt(const QJsonObject &root, const QString &path);

} // namespace Fuzz
