// SPDX-License-Identifier: BSD-3-Clause
#include "qtdbus.h"

#include "kind.h"

#include <QtDBus/QDBusMetaType>

namespace QtDBusPeer {

namespace {

QVariant toVariant(const QJsonValue &value);

template<typename List, typename Convert>
QVariant toList(const QJsonArray &array, Convert convert)
{
    List list;
    list.reserve(array.size());
    for (const auto &element : array)
        list.append(convert(element));
    return QVariant::fromValue(list);
}

QVariant toVariant(const QJsonArray &array)
{
    switch (kindOf(array)) {
    case QJsonValue::Bool:
        return toList<QList<bool>>(array, [](const QJsonValue &value) { return value.toBool(); });
    case QJsonValue::Double:
        return toList<QList<double>>(array, [](const QJsonValue &value) { return value.toDouble(); });
    case QJsonValue::String:
        return toList<QStringList>(array, [](const QJsonValue &value) { return value.toString(); });
    case QJsonValue::Object:
        return toList<QList<QVariantMap>>(array, [](const QJsonValue &value) { return toMap(value.toObject()); });
    default:
        return toList<QVariantList>(array, [](const QJsonValue &value) { return toVariant(value); });
    }
}

QVariant toVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Double:
        return value.toDouble(); // toVariant() returns an integer for integral numbers
    case QJsonValue::Array:
        return toVariant(value.toArray());
    case QJsonValue::Object:
        return toMap(value.toObject());
    default:
        return value.toVariant();
    }
}

/// Returns the value, completely demarshalled.
QVariant read(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return value;
    const auto argument = value.value<QDBusArgument>();
    if (argument.currentType() == QDBusArgument::MapType) {
        auto map = qdbus_cast<QVariantMap>(argument);
        for (auto &member : map)
            member = read(member);
        return map;
    }
    QVariantList list;
    argument.beginArray();
    while (!argument.atEnd()) {
        const QVariant element = argument.asVariant();
        list.append(read(element.userType() == qMetaTypeId<QDBusVariant>() ? element.value<QDBusVariant>().variant()
                                                                           : element));
    }
    argument.endArray();
    return list;
}

} // namespace

void registerTypes()
{
    qDBusRegisterMetaType<QList<QVariantMap>>();
}

QVariantMap toMap(const QJsonObject &object)
{
    QVariantMap map;
    for (auto member = object.begin(); member != object.end(); ++member)
        map.insert(map.constEnd(), member.key(), toVariant(member.value()));
    return map;
}

QJsonObject readObject(const QDBusArgument &argument)
{
    return QJsonObject::fromVariantMap(read(QVariant::fromValue(argument)).toMap());
}

} // namespace QtDBusPeer
