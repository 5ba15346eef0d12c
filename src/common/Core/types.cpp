// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include <QtCore/QCborArray>
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

template<typename List, typename Array, typename Convert>
QVariant listOf(const Array &array, Convert convert)
{
    List list;
    list.reserve(int(array.size()));
    for (const auto &element : array)
        list.append(convert(element));
    return QVariant::fromValue(list);
}

/// Whether the values are of the same type in JSON.
bool areAlike(const QCborValue &a, const QCborValue &b)
{
    if (a.type() == b.type())
        return true;
    const auto isNumber = [](const QCborValue &value) { return value.isInteger() || value.isDouble(); };
    return (isNumber(a) && isNumber(b)) || (a.isBool() && b.isBool());
}

} // namespace

std::optional<QJsonValue::Type> commonType(const QJsonArray &array)
{
    // What Qt keeps JSON in, at no cost; the elements are had in less than half of the time.
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

QVariant jsonArrayToVariant(const QJsonArray &array)
{
    if (array.isEmpty())
        return QVariantList();
    const std::optional<QJsonValue::Type> type = commonType(array);
    if (!type)
        return plainVariant(array);

    switch (*type) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
    case QJsonValue::String:
        return scalarList(array, *type);
    case QJsonValue::Object:
        return listOf<QList<QVariantMap>>(array, [](const QJsonValue &v) { return plainMap(v.toObject()); });
    case QJsonValue::Array:
        qWarning() << ArrayOfArrays;
        return {};
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    qWarning() << UnknownType;
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

void ObjectBuilder::insert(const QString &key, const QJsonValue &value)
{
    constexpr int Few = 16;
    if (m_object.size() < Few) {
        m_object.insert(key, value);
        return;
    }
    if (m_lastKey.isNull())
        m_lastKey = (m_object.constEnd() - 1).key();
    if (m_rest.isEmpty() && m_lastKey < key) {
        m_object.insert(key, value);
        m_lastKey = key;
    } else {
        m_rest.append({key, value});
    }
}

QJsonObject ObjectBuilder::take()
{
    if (m_rest.isEmpty())
        return m_object;
    QVector<QPair<QString, QJsonValue>> members;
    members.reserve(m_object.size() + m_rest.size());
    for (auto member = m_object.constBegin(); member != m_object.constEnd(); ++member)
        members.append({member.key(), member.value()});
    members += m_rest;
    std::stable_sort(members.begin(), members.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    QJsonObject object;
    for (const auto &[key, value] : qAsConst(members))
        object.insert(key, value);
    return object;
}

} // namespace Core::Types
