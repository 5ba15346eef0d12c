// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QVector>

#include <algorithm>

/// Returns the common type of all elements, or Undefined if there is none, as in an empty array.
inline QJsonValue::Type kindOf(const QJsonArray &array)
{
    const QJsonValue::Type type = array.at(0).type();
    const bool same = std::all_of(array.begin(), array.end(), [type](const QJsonValue &v) { return v.type() == type; });
    return same ? type : QJsonValue::Undefined;
}

/// Returns the signature of the elements of an array with this common type.
inline const char *elementSignature(QJsonValue::Type kind)
{
    switch (kind) {
    case QJsonValue::Bool:
        return "b";
    case QJsonValue::Double:
        return "d";
    case QJsonValue::String:
        return "s";
    case QJsonValue::Object:
        return "a{sv}";
    default:
        return "v";
    }
}

/// Returns the signature of a value.
inline QByteArray signatureOf(const QJsonValue &value)
{
    if (value.isArray())
        return QByteArrayLiteral("a") + elementSignature(kindOf(value.toArray()));
    return elementSignature(value.type());
}

/// Returns the elements of an array of numbers.
inline QVector<double> numbersOf(const QJsonArray &array)
{
    QVector<double> numbers;
    numbers.reserve(array.size());
    for (const auto &element : array)
        numbers.append(element.toDouble());
    return numbers;
}
