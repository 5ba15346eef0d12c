// SPDX-License-Identifier: BSD-3-Clause
#include "variants.h"

#include "json.h"
#include "message_limits.h"
#include "types.h"

#include <QtCore/QDebug>
#include <QtDBus/QDBusVariant>

namespace Corvane {

namespace {

bool isJson(int type)
{
    return type == QMetaType::QJsonValue || type == QMetaType::QJsonArray || type == QMetaType::QJsonObject;
}

/// Returns a container of JSON as a container of variants, and an invalid variant for anything else. QtDBus would
/// marshal all elements with the one signature of their type.
QVariant jsonAsVariants(const QVariant &container)
{
    if (isSequence(container)) {
        const auto elements = container.value<QSequentialIterable>();
        return elements.size() > 0 && isJson((*elements.begin()).userType()) ? container.value<QVariantList>()
                                                                             : QVariant();
    }
    const int associative = qMetaTypeId<QtMetaTypePrivate::QAssociativeIterableImpl>();
    if (QMetaType::hasRegisteredConverterFunction(container.userType(), associative)) {
        const auto members = container.value<QAssociativeIterable>();
        return members.size() > 0 && isJson((*members.begin()).userType()) ? container.value<QVariantMap>()
                                                                           : QVariant();
    }
    return {};
}

QVariant withoutBusTypes(const QVariant &value)
{
    if (value.userType() < QMetaType::User)
        return value;
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return withoutBusTypes(value.value<QDBusVariant>().variant());
    QJsonValue json;
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        value.value<QDBusArgument>() >> json;
    return json.toVariant();
}

/// Returns whether the signature is that of one value, as in a variant.
bool isSingle(const QString &signature)
{
    int depth = 0;
    for (int i = 0; i < signature.size(); ++i) {
        const char code = signature[i].toLatin1();
        depth += (code == '(' || code == '{') - (code == ')' || code == '}');
        if (depth == 0 && code != 'a')
            return i == signature.size() - 1;
    }
    return false;
}

class Filter
{
public:
    explicit Filter(Omissions *omissions) : m_omissions(omissions) { }

    /// Returns an invalid variant if the value is omitted.
    QVariant value(const QVariant &value, int levels)
    {
        const int type = value.userType();
        if (levels == 0)
            return value; // the message is refused
        if (type == QMetaType::QVariantList)
            return list(value.toList(), levels - 1);
        if (type == QMetaType::QVariantMap || type == QMetaType::QVariantHash)
            return map(value.toMap(), levels - 1);
        if (type == qMetaTypeId<QList<QVariantMap>>()) {
            QList<QVariantMap> maps;
            const auto elements = value.value<QList<QVariantMap>>();
            maps.reserve(elements.size());
            for (const QVariantMap &element : elements)
                maps.append(map(element, levels - 1));
            return QVariant::fromValue(maps);
        }
        if (type == qMetaTypeId<QDBusVariant>()) {
            const QVariant content = this->value(value.value<QDBusVariant>().variant(), levels - 1);
            return content.isValid() ? QVariant::fromValue(QDBusVariant(content)) : QVariant();
        }
        if (isJson(type))
            return toBus(QJsonValue::fromVariant(value), Place::Params, m_omissions);
        const QVariant variants = jsonAsVariants(value);
        if (variants.isValid())
            return this->value(variants, levels - 1);
        return isSendable(value) ? value : QVariant();
    }

    QVariantMap map(const QVariantMap &map, int levels)
    {
        QVariantMap result;
        for (auto member = map.begin(); member != map.end(); ++member) {
            const QVariant content = value(member.value(), levels);
            if (content.isValid())
                result.insert(result.constEnd(), member.key(), content);
        }
        return result;
    }

private:
    QVariantList list(const QVariantList &list, int levels)
    {
        QVariantList result;
        for (const QVariant &element : list) {
            const QVariant content = value(element, levels);
            if (content.isValid())
                result.append(content);
        }
        return result;
    }

    bool isSendable(const QVariant &value)
    {
        const bool sendable = value.userType() == qMetaTypeId<QDBusArgument>()
            ? isSingle(value.value<QDBusArgument>().currentSignature())
            : value.isValid() && QDBusMetaType::typeToSignature(value.userType());
        if (!sendable) {
            QString text;
            QDebug(&text) << "Value without a form on D-Bus:" << value;
            m_omissions->add({text.trimmed(), Q_FUNC_INFO, __FILE__});
        }
        return sendable;
    }

    Omissions *const m_omissions;
};

} // namespace

bool isSequence(const QVariant &value)
{
    const int type = value.userType();
    return type == QMetaType::QVariantList || type == QMetaType::QStringList || type == QMetaType::QByteArrayList
        || QMetaType::hasRegisteredConverterFunction(type, qMetaTypeId<QtMetaTypePrivate::QSequentialIterableImpl>());
}

QVariantMap withoutBusTypes(const QVariantMap &map)
{
    QVariantMap result;
    for (auto member = map.begin(); member != map.end(); ++member)
        result.insert(result.constEnd(), member.key(), withoutBusTypes(member.value()));
    return result;
}

QVariantMap sendable(const QVariantMap &map, Omissions *omissions)
{
    return Filter(omissions).map(map, MaxLevels);
}

} // namespace Corvane
