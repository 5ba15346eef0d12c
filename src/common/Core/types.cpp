// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include "json_array.h"

#include <QtCore/QDebug>

namespace Core::Types {

namespace {

QVariant plainVariant(const QJsonValue &value);

QVariantMap plainMap(const QJsonObject &object)
{
    QVariantMap map;
    for (auto member = object.begin(); member != object.end(); ++member)
        map.insert(map.constEnd(), member.key(), plainVariant(member.value()));
    return map;
}

/// Does the same as QJsonValue::toVariant(), but also converts integral numbers to doubles.
QVariant plainVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Double:
        return value.toDouble();
    case QJsonValue::Array: {
        QVariantList list;
        const QJsonArray array = value.toArray();
        list.reserve(array.size());
        for (const auto &element : array)
            list.append(plainVariant(element));
        return list;
    }
    case QJsonValue::Object:
        return plainMap(value.toObject());
    default:
        return value.toVariant();
    }
}

} // namespace

QVariant jsonArrayToVariant(const QJsonArray &array)
{
    const auto type = array.isEmpty() ? std::nullopt : commonType(array);
    if (!type)
        return plainVariant(array);

    switch (*type) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
    case QJsonValue::String:
        return scalarList(array, *type);
    case QJsonValue::Object: {
        QList<QVariantMap> maps;
        maps.reserve(array.size());
        for (const auto &element : array)
            maps.append(plainMap(element.toObject()));
        return QVariant::fromValue(maps);
    }
    case QJsonValue::Array:
        qWarning() << JsonArrayOfArrays;
        return {};
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    qWarning() << UnknownJsonType;
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

} // namespace Core::Types
