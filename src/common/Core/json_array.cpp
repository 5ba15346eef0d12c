// SPDX-License-Identifier: BSD-3-Clause
#include "json_array.h"

#include <QtCore/QCborArray>
#include <QtCore/QStringList>

#include <algorithm>

namespace Core {

namespace {

/// Returns whether both values have the same JSON type.
bool areAlike(const QCborValue &a, const QCborValue &b)
{
    if (a.type() == b.type())
        return true;
    const auto isNumber = [](const QCborValue &value) { return value.isInteger() || value.isDouble(); };
    return (isNumber(a) && isNumber(b)) || (a.isBool() && b.isBool());
}

template<typename List, typename Convert>
QVariant listOf(const QCborArray &elements, Convert convert)
{
    List list;
    list.reserve(int(elements.size()));
    for (const auto &element : elements)
        list.append(convert(element));
    return QVariant::fromValue(list);
}

} // namespace

std::optional<QJsonValue::Type> commonType(const QJsonArray &array)
{
    // Qt stores JSON as CBOR. This conversion copies nothing, and access to the elements needs less than half the time.
    const QCborArray elements = QCborArray::fromJsonArray(array);
    const QCborValue first = elements.first();
    const bool common = std::all_of(elements.begin(), elements.end(),
                                    [&first](const QCborValue &element) { return areAlike(element, first); });
    return common ? std::optional(array.first().type()) : std::nullopt;
}

QVariant scalarList(const QJsonArray &array, QJsonValue::Type type)
{
    const QCborArray elements = QCborArray::fromJsonArray(array);
    if (type == QJsonValue::Bool)
        return listOf<QList<bool>>(elements, [](const QCborValue &v) { return v.toBool(); });
    if (type == QJsonValue::Double)
        return listOf<QList<double>>(elements, [](const QCborValue &v) { return v.toDouble(); });
    return listOf<QStringList>(elements, [](const QCborValue &v) { return v.toString(); });
}

} // namespace Core
