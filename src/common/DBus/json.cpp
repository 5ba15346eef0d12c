// SPDX-License-Identifier: BSD-3-Clause
#include "json.h"

#include "message_limits.h"

#include <Core/json_array.h>

#include <QtCore/QJsonArray>
#include <QtDBus/QDBusVariant>

#include <utility>

namespace Corvane {

namespace {

// The log context of a warning is the function that defines the rule for the value.
constexpr char Writers[] = "src/common/DBus/types.cpp";
constexpr char ValueWriter[] = "QDBusArgument& operator<<(QDBusArgument&, const QJsonValue&)";
constexpr char ArrayWriter[] = "QDBusArgument& operator<<(QDBusArgument&, const QJsonArray&)";
constexpr char Variants[] = "src/common/Core/types.cpp";
constexpr char ArrayToVariant[] = "QVariant Core::Types::jsonArrayToVariant(const QJsonArray&)";

class Converter
{
public:
    explicit Converter(Omissions *omissions) : m_omissions(omissions) { }

    /// Returns an invalid variant if the value is omitted.
    QVariant value(const QJsonValue &value, Place place)
    {
        switch (value.type()) {
        case QJsonValue::Bool:
            return value.toBool();
        case QJsonValue::Double:
            return value.toDouble();
        case QJsonValue::String:
            return value.toString();
        case QJsonValue::Array:
            return array(value.toArray(), place);
        case QJsonValue::Object:
            return allows(1) ? QVariant::fromValue(object(value.toObject(), place)) : QVariant();
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            break;
        }
        m_omissions->add({QLatin1String(Core::UnknownJsonType), ValueWriter, Writers});
        return {};
    }

    BusObject object(const QJsonObject &object, Place place)
    {
        BusObject converted;
        converted.members.reserve(object.size());
        forEachMember(object, place, [&converted](const QString &key, QVariant &&content) {
            converted.members.append({key, std::move(content)});
        });
        return converted;
    }

    template<typename Add>
    void forEachMember(const QJsonObject &object, Place place, Add add)
    {
        for (auto member = object.begin(); member != object.end(); ++member) {
            QVariant content = nested(3, member.value(), place); // in the array, the entry and the variant
            if (content.isValid())
                add(member.key(), std::move(content));
        }
    }

private:
    QVariant array(const QJsonArray &array, Place place)
    {
        const auto type = place == Place::MixedArray || array.isEmpty() ? std::nullopt : Core::commonType(array);
        if (!type)
            return allows(1) ? mixedArray(array) : QVariant();
        const bool isHint = place == Place::Hints;
        switch (*type) {
        case QJsonValue::Bool:
        case QJsonValue::Double:
        case QJsonValue::String:
            return allows(1) ? Core::scalarList(array, *type) : QVariant();
        case QJsonValue::Object:
            return allows(2) ? objects(array, isHint ? Place::MixedArray : place) : QVariant();
        case QJsonValue::Array:
            leaveOutArray(Core::JsonArrayOfArrays, isHint);
            return {};
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            break;
        }
        leaveOutArray(Core::UnknownJsonType, isHint);
        return {};
    }

    QVariantList mixedArray(const QJsonArray &array)
    {
        QVariantList list;
        list.reserve(array.size());
        for (const auto &element : array) {
            const QVariant content = nested(2, element, Place::MixedArray); // in the array and the variant
            if (content.isValid())
                list.append(content);
        }
        return list;
    }

    QVariant objects(const QJsonArray &array, Place place)
    {
        QVector<BusObject> objects;
        objects.reserve(array.size());
        ++m_level;
        for (const auto &element : array)
            objects.append(object(element.toObject(), place));
        --m_level;
        return QVariant::fromValue(objects);
    }

    /// Converts a value inside this number of additional containers. Returns an invalid variant if a message cannot
    /// nest them.
    QVariant nested(int containers, const QJsonValue &content, Place place)
    {
        if (!allows(containers))
            return {};
        m_level += containers;
        const QVariant converted = value(content, place);
        m_level -= containers;
        return converted;
    }

    /// Returns whether a message can nest this number of additional containers. If not, the value counts as omitted.
    bool allows(int containers)
    {
        if (m_level + containers <= MaxLevels)
            return true;
        m_omissions->addTooDeep({QLatin1String(TooDeep), ValueWriter, Writers});
        return false;
    }

    void leaveOutArray(const char *warning, bool isHint)
    {
        m_omissions->add({QLatin1String(warning), isHint ? ArrayToVariant : ArrayWriter, isHint ? Variants : Writers});
    }

    Omissions *const m_omissions;
    int m_level = 0; ///< The containers around the current value.
};

} // namespace

QDBusArgument &operator<<(QDBusArgument &arg, const BusObject &object)
{
    arg.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (const BusMember &member : object.members) {
        arg.beginMapEntry();
        arg << member.key << QDBusVariant(member.value);
        arg.endMapEntry();
    }
    arg.endMap();
    return arg;
}

QVariant toBus(const QJsonValue &value, Place place, Omissions *omissions)
{
    return Converter(omissions).value(value, place);
}

BusObject toBusObject(const QJsonObject &object, Place place, Omissions *omissions)
{
    return Converter(omissions).object(object, place);
}

QVariantMap toBusMap(const QJsonObject &object, Place place, Omissions *omissions)
{
    QVariantMap map;
    Converter(omissions).forEachMember(object, place, [&map](const QString &key, const QVariant &content) {
        map.insert(map.constEnd(), key, content);
    });
    return map;
}

} // namespace Corvane
