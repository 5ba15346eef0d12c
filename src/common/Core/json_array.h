// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonValue>
#include <QtCore/QVariant>

#include <optional>

/// Typed lists of JSON arrays. Core::Types and the conversion to D-Bus values use these functions.
namespace Core {

// The warnings about values that have no typed list.
constexpr char UnknownJsonType[] = "Unknown JSON value type";
constexpr char JsonArrayOfArrays[] = "JSON array of arrays are not supported";

/// Returns the common type of all elements of the non-empty \a array, or nothing if the types differ.
std::optional<QJsonValue::Type> commonType(const QJsonArray &array);

/// Returns \a array as QList<bool>, QList<double> or QStringList. All elements have the scalar type \a type.
QVariant scalarList(const QJsonArray &array, QJsonValue::Type type);

} // namespace Core
