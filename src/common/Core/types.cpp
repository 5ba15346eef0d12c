// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include <QtCore/QDebug>
#include <QtCore/QStringList>

#include <algorithm>

namespace Core::Types {

namespace {

QVariantMap plainMap(const QJsonObject &object)
{
    QVariantMap map;
    for (auto member = object.begin(); member != object.end(); ++member)
        map.insert(map.constEnd(), member.key(), plainVariant(member.value()));
    return map;
}

template<typename List, typename Convert>
QVariant listOf(const QJsonArray &array, Convert convert)
{
    List list;
    list.reserve(array.size());
    for (const auto &element : array)
        list.append(convert(element));
    return QVariant::fromValue(list);
}

} // namespace

std::optional<QJsonValue::Type> commonType(const QJsonArray &array)
{
    const QJsonValue::Type type = array.first().type();
    const bool common =
        std::all_of(array.begin(), array.end(), [type](const QJsonValue &v) { return v.type() == type; });
    return common ? std::optional(type) : std::nullopt;
}

QVariant jsonArrayToVariant(const QJsonArray &array)
{
    if (array.isEmpty())
        return QVariantList();
    const std::optional<QJsonValue::Type> type = commonType(array);
    if (!type)
        return plainVariant(array);

    switch (*type) {
    case QJsonValue::Bool:
        return listOf<QList<bool>>(array, [](const QJsonValue &v) { return v.toBool(); });
    case QJsonValue::Double:
        return listOf<QList<double>>(array, [](const QJsonValue &v) { return v.toDouble(); });
    case QJsonValue::String:
        return listOf<QStringList>(array, [](const QJsonValue &v) { return v.toString(); });
    case QJsonValue::Object:
        return listOf<QList<QVariantMap>>(array, [](const QJsonValue &v) { return plainMap(v.toObject()); });
    case QJsonValue::Array:
        qWarning() << "JSON array of arrays are not supported";
        return {};
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    qWarning() << "Unknown JSON value type";
    return {};
}

QVariantMap jsonObjectToVariantMap(const QJsonObject &object)
{
    QVariantMap map;
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QJsonValue value = member.value();
        QVariant variant;
        if (value.isArray())
            variant = jsonArrayToVariant(value.toArray());
        else if (value.isObject())
            variant = jsonObjectToVariantMap(value.toObject());
        else
            variant = plainVariant(value);
        map.insert(map.constEnd(), member.key(), variant);
    }
    return map;
}

QVariant plainVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Double:
        return value.toDouble();
    case QJsonValue::Array:
        return listOf<QVariantList>(value.toArray(), plainVariant);
    case QJsonValue::Object:
        return plainMap(value.toObject());
    default:
        return value.toVariant();
    }
}

QJsonObject makeObject(Members &&members)
{
    const auto byKey = [](const auto &a, const auto &b) { return a.first < b.first; };
    if (!std::is_sorted(members.cbegin(), members.cend(), byKey))
        std::stable_sort(members.begin(), members.end(), byKey);
    QJsonObject object;
    for (const auto &[key, value] : qAsConst(members))
        object.insert(key, value);
    return object;
}

} // namespace Core::Types
