// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QPair>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <optional>

/// JSON as variants. Unlike in Qt's own conversion numbers are doubles always, and an array of one type is a typed
/// list.
namespace Core::Types {

/// The type that all elements of a non-empty array share; none if they differ.
std::optional<QJsonValue::Type> commonType(const QJsonArray &array);

/**
 * The array as QList<bool>, QList<double>, QStringList or QList<QVariantMap>; if it is empty or mixed, as QVariantList.
 * What is inside its elements is converted as by plainVariant(). An array of arrays or of nulls gives an invalid
 * variant and a warning.
 */
QVariant jsonArrayToVariant(const QJsonArray &array);

/// The object as a map. Arrays in it, at any depth of objects, are converted as by jsonArrayToVariant().
QVariantMap jsonObjectToVariantMap(const QJsonObject &object);

/// The value as bool, double, QString, QVariantList, QVariantMap or, for null, nullptr: QJsonValue::toVariant(), but
/// integral numbers are doubles too.
QVariant plainVariant(const QJsonValue &value);

using Members = QVector<QPair<QString, QJsonValue>>;

/// An object of \a members in time n log n; inserting them one by one would be quadratic. Of members with the same key
/// the last one counts.
QJsonObject makeObject(Members &&members);

} // namespace Core::Types
