// SPDX-License-Identifier: BSD-3-Clause
#include "baseline.h"

#include <kind.h>

#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>

namespace Baseline {

namespace {

int metaTypeOf(QJsonValue::Type kind)
{
    switch (kind) {
    case QJsonValue::Bool:
        return QMetaType::Bool;
    case QJsonValue::Double:
        return QMetaType::Double;
    case QJsonValue::String:
        return QMetaType::QString;
    case QJsonValue::Object:
        return QMetaType::QVariantMap;
    default:
        return qMetaTypeId<QDBusVariant>();
    }
}

void write(QDBusArgument &argument, const QJsonValue &value);

void write(QDBusArgument &argument, const QJsonArray &array)
{
    const QJsonValue::Type kind = kindOf(array);
    argument.beginArray(metaTypeOf(kind));
    for (const auto &element : array) {
        if (kind == QJsonValue::Undefined)
            argument << QDBusVariant(element.toVariant());
        else
            write(argument, element);
    }
    argument.endArray();
}

void write(QDBusArgument &argument, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        argument << value.toBool();
        break;
    case QJsonValue::Double:
        argument << value.toDouble();
        break;
    case QJsonValue::String:
        argument << value.toString();
        break;
    case QJsonValue::Array:
        write(argument, value.toArray());
        break;
    case QJsonValue::Object:
        Baseline::write(argument, value.toObject());
        break;
    default:
        qFatal("There are no nulls in the payloads");
    }
}

} // namespace

void write(QDBusArgument &argument, const QJsonObject &object)
{
    argument.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (auto member = object.begin(); member != object.end(); ++member) {
        QDBusArgument value;
        write(value, member.value());
        argument.beginMapEntry();
        argument << member.key() << QDBusVariant(QVariant::fromValue(value));
        argument.endMapEntry();
    }
    argument.endMap();
}

} // namespace Baseline
