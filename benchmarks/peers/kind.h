// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QVector>

#include <algorithm>

/// The type that all elements have; Undefined if there is none, as in an empty array.
inline QJsonValue::Type kindOf(const QJsonArray &array)
{
    const QJsonValue::Type type = array.at(0).type();
    const bool same = std::all_of(array.begin(), array.end(), [type](const QJsonValue &v) { return v.type() == type; });
    return same ? type : QJsonValue::Undefined;
}

/// The signature of what an array of these is sent as.
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

/// The signature of what a value is sent as.
inline QByteArray signatureOf(const QJsonValue &value)
{
    if (value.isArray())
        return QByteArrayLiteral("a") + elementSignature(kindOf(value.toArray()));
    return elementSignature(value.type());
}

/// The elements of an array of numbers.
inline QVector<double> numbersOf(const QJsonArray &array)
{
    QVector<double> numbers;
    numbers.reserve(array.size());
    for (const auto &element : array)
        numbers.append(element.toDouble());
    return numbers;
}
