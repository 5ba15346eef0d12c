// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace Fuzz {

/// Whether some key, at any depth, cannot be named by a path.
bool hasAmbiguousKeys(const QJsonValue &value);

/// What a path with wildcards matches: the path and the value of each match. Ambiguous keys are in the path as they
/// are, which then may lead to something else.
QVector<QPair<QString, QJsonValue>> matches(const QJsonObject &root, const QString &path);

/// The one value that a path leads to, wildcards passed over.
QJsonValue valueAt(const QJsonObject &root, const QString &path);

} // namespace Fuzz
