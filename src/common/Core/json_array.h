// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonValue>
#include <QtCore/QVariant>

#include <optional>

/// Typed lists from JSON arrays: the part that Core::Types and the conversion for the bus share.
namespace Core {

// The warnings about values that have no typed list.
constexpr char UnknownJsonType[] = "Unknown JSON value type";
constexpr char JsonArrayOfArrays[] = "JSON array of arrays are not supported";

/// Returns the type that all elements of the non-empty \a array share, or nothing if they differ.
std::optional<QJsonValue::Type> commonType(const QJsonArray &array);

/// Returns \a array as QList<bool>, QList<double> or QStringList. All elements have the scalar type \a type.
QVariant scalarList(const QJsonArray &array, QJsonValue::Type type);

} // namespace Core
