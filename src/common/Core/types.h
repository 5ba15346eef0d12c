// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QVariant>

/**
 * JSON as variants.
 *
 * Unlike in Qt's own conversion, every number is a double and an array of one type is a typed list. Messages get the
 * same types from DBus/json.h, which also leaves out the values that D-Bus has no form for.
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
