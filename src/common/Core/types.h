// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QVariant>

/**
 * JSON as variants.
 *
 * Unlike Qt's conversion, this one converts every number to a double, and an array with elements of one type to a typed
 * list. DBus/json.h converts to the same types for messages, and omits values that D-Bus cannot represent.
 */
namespace Core::Types {

/**
 * Returns the array as QList<bool>, QList<double>, QStringList or QList<QVariantMap>, or as QVariantList if it is empty
 * or mixed. Arrays within its elements become QVariantList. An array of arrays or of nulls returns an invalid variant
 * and logs a warning.
 */
QVariant jsonArrayToVariant(const QJsonArray &array);

/// Returns the object as a map. jsonArrayToVariant() converts the arrays in it, at any depth of objects.
QVariantMap jsonObjectToVariantMap(const QJsonObject &object);

} // namespace Core::Types
