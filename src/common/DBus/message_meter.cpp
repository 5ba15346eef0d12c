// SPDX-License-Identifier: BSD-3-Clause
#include "message_meter.h"

#include <Core/types.h>

#include <QtDBus/QDBusUnixFileDescriptor>

namespace Corvane {

namespace {

constexpr int MaxLevels = 64;
constexpr qint64 MaxArrayBody = qint64(64) * 1024 * 1024;
constexpr qint64 MaxHeader = 4096; // all but the object path, which is ours, are names of at most 255 bytes
constexpr qint64 MaxBody = qint64(128) * 1024 * 1024 - MaxHeader;

qint64 utf8Length(const QString &text)
{
    qint64 length = 0;
    for (const QChar c : text) {
        const ushort unit = c.unicode();
        length += 1 + (unit >= 0x80) + (unit >= 0x800 && !c.isSurrogate()); // two surrogates make four bytes
    }
    return length;
}

struct Survey
{
    bool isAscii = true;
    bool hasNul = false;
};

/// Texts may be most of a payload; without a way out of the loop the compiler looks at many units at once.
Survey surveyOf(const QString &text)
{
    ushort bits = 0;
    ushort nuls = 0;
    for (const QChar c : text) {
        bits = ushort(bits | c.unicode());
        nuls = ushort(nuls | (c.unicode() == 0));
    }
    return {bits < 0x80, nuls != 0};
}

} // namespace

void MessageMeter::add(const QString &text)
{
    const Survey survey = surveyOf(text);
    if (survey.hasNul)
        refuse(QStringLiteral("A message cannot hold a text with U+0000"));
    addFixed(4);
    m_size += (survey.isAscii ? text.size() : utf8Length(text)) + 1;
    if (m_size > MaxBody)
        refuse(QStringLiteral("A message cannot be longer than 128 MiB"));
}

void MessageMeter::add(const QStringList &texts)
{
    addList(texts, 4, 1, [this](const QString &text) { add(text); });
}

void MessageMeter::add(const QJsonObject &object)
{
    addObject(object, nullptr);
}

BusObject MessageMeter::addConverted(const QJsonObject &object)
{
    BusObject converted;
    addObject(object, &converted);
    return converted;
}

QVariant MessageMeter::converted(const QJsonValue &value)
{
    MessageMeter meter;
    meter.m_hasLimits = false;
    QVariant converted;
    meter.addContent(value, &converted);
    logOmissions(meter.m_omissions);
    return converted;
}

void MessageMeter::add(const QVariantMap &map)
{
    addMap(map, [this](const QString &, const QVariant &value) { addContent(value); });
}

void MessageMeter::addObject(const QJsonObject &object, BusObject *converted)
{
    if (!converted) {
        addMap(object, [this](const QString &, const QJsonValue &value) { addContent(value, nullptr); });
        return;
    }
    converted->members.reserve(object.size());
    addMap(object, [this, converted](const QString &key, const QJsonValue &value) {
        QVariant content;
        addContent(value, &content);
        if (content.isValid())
            converted->members.append({key, QDBusVariant(content)});
    });
}

void MessageMeter::addArray(const QJsonArray &array, QVariant *converted)
{
    const auto type = array.isEmpty() ? std::nullopt : Core::Types::commonType(array);
    if (!type) {
        addPlainContent(array);
        if (converted && m_problem.isEmpty())
            *converted = withoutNulls(Core::Types::plainVariant(array), &m_omissions);
        return;
    }
    switch (*type) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
        addFixedArray(array.size(), *type == QJsonValue::Bool ? 4 : 8);
        if (converted)
            *converted = Core::Types::scalarList(array, *type);
        return;
    case QJsonValue::String: {
        const QVariant texts = Core::Types::scalarList(array, *type);
        addContent(texts);
        if (converted)
            *converted = texts;
        return;
    }
    case QJsonValue::Object: {
        QVector<BusObject> objects;
        objects.reserve(array.size());
        addSignature(6);
        addList(array, 4, 1, [this, converted, &objects](const QJsonValue &element) {
            objects.append(BusObject());
            addObject(element.toObject(), converted ? &objects.last() : nullptr);
        });
        if (converted)
            *converted = QVariant::fromValue(objects);
        return;
    }
    case QJsonValue::Array:
        if (converted)
            m_omissions.append(Core::Types::ArrayOfArrays);
        return;
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        if (converted)
            m_omissions.append(Core::Types::UnknownType);
        return;
    }
}

void MessageMeter::addContent(const QJsonValue &value, QVariant *converted)
{
    switch (value.type()) {
    case QJsonValue::Array:
        return addArray(value.toArray(), converted);
    case QJsonValue::Object: {
        BusObject members;
        addSignature(5);
        addObject(value.toObject(), converted ? &members : nullptr);
        if (converted)
            *converted = QVariant::fromValue(members);
        return;
    }
    case QJsonValue::Bool:
        if (converted)
            *converted = value.toBool();
        addSignature(1);
        return addFixed(4);
    case QJsonValue::Double:
        if (converted)
            *converted = value.toDouble();
        addSignature(1);
        return addFixed(8);
    case QJsonValue::String: {
        const QString text = value.toString();
        if (converted)
            *converted = text;
        addSignature(1);
        return add(text);
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        if (converted)
            m_omissions.append(Core::Types::UnknownType);
        return;
    }
}

void MessageMeter::addPlainContent(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        addSignature(1);
        return addFixed(4);
    case QJsonValue::Double:
        addSignature(1);
        return addFixed(8);
    case QJsonValue::String:
        addSignature(1);
        return add(value.toString());
    case QJsonValue::Array:
        addSignature(2);
        return addList(value.toArray(), 1, 2, [this](const QJsonValue &element) { addPlainContent(element); });
    case QJsonValue::Object:
        addSignature(5);
        return addMap(value.toObject(), [this](const QString &, const QJsonValue &member) { addPlainContent(member); });
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return; // left out
    }
}

void MessageMeter::addContent(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return; // left out
    case QMetaType::Bool:
    case QMetaType::Int:
        addSignature(1);
        return addFixed(4);
    case QMetaType::Double:
        addSignature(1);
        return addFixed(8);
    case QMetaType::QString:
        addSignature(1);
        return add(value.toString());
    case QMetaType::QStringList:
        addSignature(2);
        return add(value.toStringList());
    case QMetaType::QByteArray:
        return addFixedArray(value.toByteArray().size(), 1);
    case QMetaType::QVariantList:
        addSignature(2);
        return addList(value.toList(), 1, 2, [this](const QVariant &element) { addContent(element); });
    case QMetaType::QVariantMap:
        addSignature(5);
        return add(value.toMap());
    default:
        break;
    }
    if (value.userType() == qMetaTypeId<QList<bool>>()) {
        addFixedArray(value.value<QList<bool>>().size(), 4);
    } else if (value.userType() == qMetaTypeId<QList<double>>()) {
        addFixedArray(value.value<QList<double>>().size(), 8);
    } else if (value.userType() == qMetaTypeId<QList<int>>()) {
        addFixedArray(value.value<QList<int>>().size(), 4);
    } else if (value.userType() == qMetaTypeId<QList<QVariantMap>>()) {
        addSignature(6);
        addList(value.value<QList<QVariantMap>>(), 4, 1, [this](const QVariantMap &element) { add(element); });
    } else if (value.userType() == qMetaTypeId<QList<QDBusUnixFileDescriptor>>()) {
        const int count = value.value<QList<QDBusUnixFileDescriptor>>().size();
        addFixedArray(count, 4);
        addDescriptors(count);
    } else if (value.userType() == qMetaTypeId<QDBusUnixFileDescriptor>()) {
        addSignature(1);
        addFixed(4);
        addDescriptors(1);
    } else if (value.userType() == qMetaTypeId<QDBusVariant>()) {
        addSignature(1);
        addNested(1, [&] { addContent(value.value<QDBusVariant>().variant()); });
    } else if (value.userType() == QMetaType::QJsonObject || value.userType() == QMetaType::QJsonArray
               || value.userType() == QMetaType::QJsonValue) {
        addContent(QJsonValue::fromVariant(value), nullptr);
    } else {
        addSignature(255);
        addFixed(8);
    }
}

void MessageMeter::addDescriptors(int count)
{
    m_descriptors += count;
    if (m_descriptors > CORVANE_MAX_DESCRIPTORS)
        refuse(QStringLiteral("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS));
}

/// A map of texts to variants, whose content \a addContent adds with the signature, given the key and the value.
template<typename Map, typename AddContent>
void MessageMeter::addMap(const Map &map, AddContent addContent)
{
    addBody(8, [&] {
        for (auto member = map.begin(); member != map.end() && m_problem.isEmpty(); ++member) {
            const QString key = member.key();
            align(8);
            add(key);
            addNested(3, [&] { addContent(key, member.value()); }); // the array, the entry and the variant
        }
    });
}

template<typename List, typename AddElement>
void MessageMeter::addList(const List &list, int alignment, int levels, AddElement addElement)
{
    addBody(alignment, [&] {
        for (auto element = list.begin(); element != list.end() && m_problem.isEmpty(); ++element)
            addNested(levels, [&] { addElement(*element); });
    });
}

/// A variant that holds an array of fixed-size elements, into which nobody has to descend.
void MessageMeter::addFixedArray(int count, int elementSize)
{
    addSignature(2);
    addBody(elementSize, [&] { m_size += qint64(count) * elementSize; });
}

template<typename AddElements>
void MessageMeter::addBody(int alignment, AddElements addElements)
{
    addFixed(4);
    align(alignment);
    const qint64 start = m_size;
    addElements();
    if (m_size - start > MaxArrayBody)
        refuse(QStringLiteral("A message cannot hold an array or object of more than 64 MiB"));
}

template<typename Add>
void MessageMeter::addNested(int levels, Add add)
{
    m_level += levels;
    if (m_level > MaxLevels && m_hasLimits)
        refuse(QStringLiteral("A message cannot nest more than %1 containers").arg(MaxLevels));
    else
        add();
    m_level -= levels;
}

void MessageMeter::align(int alignment)
{
    m_size = (m_size + alignment - 1) / alignment * alignment;
}

void MessageMeter::addFixed(int size)
{
    align(size);
    m_size += size;
}

void MessageMeter::addSignature(int length)
{
    m_size += length + 2; // its length before it, a NUL behind
}

void MessageMeter::refuse(const QString &problem)
{
    if (m_problem.isEmpty() && m_hasLimits)
        m_problem = problem;
}

} // namespace Corvane
