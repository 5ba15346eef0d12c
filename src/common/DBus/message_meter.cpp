// SPDX-License-Identifier: BSD-3-Clause
#include "message_meter.h"

#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusSignature>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <type_traits>

namespace Corvane {

namespace {

constexpr qint64 MaxArrayBody = qint64(64) * 1024 * 1024;
constexpr qint64 MaxHeader = 4096; // all but the object path, which is ours, are names of at most 255 bytes
constexpr qint64 MaxBody = qint64(128) * 1024 * 1024 - MaxHeader;

constexpr char TooDeep[] = "A message cannot nest more than 64 containers";
static_assert(MaxLevels == 64, "The text above says so too");

// Logged in the names of the writers of JSON that leave it out.
constexpr const char *ArrayWriter = "QDBusArgument& operator<<(QDBusArgument&, const QJsonArray&)";
constexpr Omission ArraysLeftOut{Core::Types::ArrayOfArrays, ArrayWriter};
constexpr Omission NullsLeftOut{Core::Types::UnknownType, ArrayWriter};
constexpr Omission TooDeepLeftOut{TooDeep, ValueWriter};

qint64 utf8Length(const QString &text)
{
    qint64 length = 0;
    for (const QChar c : text) {
        const ushort unit = c.unicode();
        length += 1 + (unit >= 0x80) + (unit >= 0x800 && !c.isSurrogate()); // two surrogates make four bytes
    }
    return length;
}

/// What a value begins at a multiple of, given the first character of its signature. A value of a fixed size has it as
/// its size too.
int alignmentOf(char code)
{
    switch (code) {
    case 'y':
    case 'g':
    case 'v':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
    case '(':
    case '{':
        return 8;
    default:
        return 4;
    }
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
}

void MessageMeter::add(const QStringList &texts)
{
    addList(texts, 4, 1, [this](const QString &text) { add(text); });
}

void MessageMeter::add(const QJsonObject &object)
{
    addMap(object, [this](const QString &, const QJsonValue &value) { addContent(value); });
}

BusObject MessageMeter::addConverted(const QJsonObject &object)
{
    BusObject converted;
    converted.members.reserve(object.size());
    addMap(object, [this, &converted](const QString &key, const QJsonValue &value) {
        const QVariant content = addConverted(value);
        if (content.isValid())
            converted.members.append({key, QDBusVariant(content)});
    });
    return converted;
}

QVariant MessageMeter::converted(const QJsonValue &value)
{
    MessageMeter meter;
    meter.m_hasLimits = false;
    const QVariant converted = meter.addConverted(value);
    logOmissions(meter.m_omissions);
    return converted;
}

void MessageMeter::add(const QVariantMap &map)
{
    addMap(map, [this](const QString &, const QVariant &value) { addContent(value); });
}

QString MessageMeter::problem() const
{
    if (m_problem.isEmpty() && m_size > MaxBody)
        return QStringLiteral("A message cannot be longer than 128 MiB");
    return m_problem;
}

QVariant MessageMeter::addConverted(const QJsonArray &array)
{
    const auto type = array.isEmpty() ? std::nullopt : Core::Types::commonType(array);
    if (!type) {
        const int omitted = m_omissions.size();
        addPlainContent(array);
        if (m_omissions.size() > omitted) { // something is nested too deep, where nothing is refused
            m_omissions.resize(omitted + 1);
            return {};
        }
        return m_problem.isEmpty() ? withoutNulls(Core::Types::plainVariant(array), &m_omissions) : QVariant();
    }
    switch (*type) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
    case QJsonValue::String: {
        const QVariant list = Core::Types::scalarList(array, *type);
        addContent(list);
        return list;
    }
    case QJsonValue::Object: {
        QVector<BusObject> objects;
        objects.reserve(array.size());
        addSignature(6);
        addList(array, 4, 1,
                [this, &objects](const QJsonValue &element) { objects.append(addConverted(element.toObject())); });
        return QVariant::fromValue(objects);
    }
    case QJsonValue::Array:
        m_omissions.append(ArraysLeftOut);
        return {};
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    m_omissions.append(NullsLeftOut);
    return {};
}

QVariant MessageMeter::addConverted(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Array:
        return addConverted(value.toArray());
    case QJsonValue::Object:
        addSignature(5);
        return QVariant::fromValue(addConverted(value.toObject()));
    case QJsonValue::Bool:
        addSignature(1);
        addFixed(4);
        return value.toBool();
    case QJsonValue::Double:
        addSignature(1);
        addFixed(8);
        return value.toDouble();
    case QJsonValue::String: {
        const QString text = value.toString();
        addSignature(1);
        add(text);
        return text;
    }
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    m_omissions.append(NullLeftOut);
    return {};
}

/// What Core::Types makes of the value. It looks at what arrays have in common, but not within an array.
void MessageMeter::addContent(const QJsonValue &value)
{
    if (value.isObject()) {
        addSignature(5);
        return add(value.toObject());
    }
    const QJsonArray array = value.toArray();
    const auto type = array.isEmpty() ? std::nullopt : Core::Types::commonType(array);
    if (!type)
        return addPlainContent(value);
    switch (*type) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
        return addFixedArray(array.size(), *type == QJsonValue::Bool ? 4 : 8);
    case QJsonValue::String:
        addSignature(2);
        return addList(array, 4, 1, [this](const QJsonValue &element) { add(element.toString()); });
    case QJsonValue::Object:
        addSignature(6);
        return addList(array, 4, 1, [this](const QJsonValue &element) { addPlainMembers(element.toObject()); });
    case QJsonValue::Array:
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return; // left out
    }
}

void MessageMeter::addPlainMembers(const QJsonObject &object)
{
    addMap(object, [this](const QString &, const QJsonValue &value) { addPlainContent(value); });
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
        return addPlainMembers(value.toObject());
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
    case QMetaType::UChar:
        addSignature(1);
        return addFixed(1);
    case QMetaType::Short:
    case QMetaType::UShort:
        addSignature(1);
        return addFixed(2);
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
        addSignature(1);
        return addFixed(4);
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
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
    if (addFixedLists<bool, short, ushort, int, uint, qlonglong, qulonglong, double>(value))
        return;
    if (value.userType() == qMetaTypeId<QList<QVariantMap>>()) {
        addSignature(6);
        addList(value.value<QList<QVariantMap>>(), 4, 1, [this](const QVariantMap &element) { add(element); });
    } else if (value.userType() == qMetaTypeId<QDBusObjectPath>()) {
        addSignature(1);
        add(value.value<QDBusObjectPath>().path());
    } else if (value.userType() == qMetaTypeId<QList<QDBusObjectPath>>()) {
        addSignature(2);
        addList(value.value<QList<QDBusObjectPath>>(), 4, 1, [this](const QDBusObjectPath &path) { add(path.path()); });
    } else if (value.userType() == qMetaTypeId<QList<QDBusSignature>>()) {
        addSignature(2);
        addList(value.value<QList<QDBusSignature>>(), 1, 1,
                [this](const QDBusSignature &signature) { addSignature(signature.signature().size()); });
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
    } else if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        const auto arg = value.value<QDBusArgument>();
        addSignature(arg.currentSignature().size());
        add(arg);
    } else if (value.userType() == qMetaTypeId<BusObject>()) {
        addSignature(5);
        add(value.value<BusObject>());
    } else if (value.userType() == qMetaTypeId<QVector<BusObject>>()) {
        addSignature(6);
        addList(value.value<QVector<BusObject>>(), 4, 1, [this](const BusObject &object) { add(object); });
    } else if (value.userType() == QMetaType::QJsonObject || value.userType() == QMetaType::QJsonArray
               || value.userType() == QMetaType::QJsonValue) {
        addConverted(QJsonValue::fromVariant(value)); // there is too much of it
    } else {
        addSignature(255);
        addFixed(8);
    }
}

void MessageMeter::add(const BusObject &object)
{
    addBody(8, [&] {
        for (const BusMember &member : object.members) {
            align(8);
            add(member.key);
            addNested(3, [&] { addContent(member.value.variant()); });
        }
    });
}

/// The value that is next in \a arg. What the program has written into an argument itself cannot be read, and is taken
/// to be small.
void MessageMeter::add(const QDBusArgument &arg)
{
    const auto codeOfNext = [&arg] { return arg.currentSignature().leftRef(1).toLatin1().at(0); };
    switch (arg.currentType()) {
    case QDBusArgument::BasicType: {
        const char code = codeOfNext();
        const QVariant value = arg.asVariant();
        if (code == 's')
            return add(value.toString());
        if (code == 'o')
            return add(value.value<QDBusObjectPath>().path());
        if (code == 'g')
            return addSignature(value.value<QDBusSignature>().signature().size());
        if (code == 'h')
            addDescriptors(1);
        return addFixed(alignmentOf(code));
    }
    case QDBusArgument::VariantType: {
        const QVariant content = qdbus_cast<QDBusVariant>(arg).variant();
        return addNested(1, [&] { addContent(content); });
    }
    case QDBusArgument::ArrayType:
        arg.beginArray();
        addBody(alignmentOf(codeOfNext()), [&] {
            while (!arg.atEnd() && m_problem.isEmpty())
                addNested(1, [&] { add(arg); });
        });
        return arg.endArray();
    case QDBusArgument::MapType:
        arg.beginMap();
        addBody(8, [&] {
            while (!arg.atEnd() && m_problem.isEmpty()) {
                arg.beginMapEntry();
                align(8);
                addNested(2, [&] {
                    add(arg);
                    add(arg);
                });
                arg.endMapEntry();
            }
        });
        return arg.endMap();
    case QDBusArgument::StructureType:
        align(8);
        arg.beginStructure();
        while (!arg.atEnd() && m_problem.isEmpty())
            addNested(1, [&] { add(arg); });
        return arg.endStructure();
    case QDBusArgument::MapEntryType:
    case QDBusArgument::UnknownType:
        return;
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

/// Adds the list if it is one of such elements. All but truths are as large on the bus as here.
template<typename... Elements>
bool MessageMeter::addFixedLists(const QVariant &value)
{
    const auto isListOf = [this, &value](auto element) {
        using List = QList<decltype(element)>;
        if (value.userType() != qMetaTypeId<List>())
            return false;
        addFixedArray(value.value<List>().size(), std::is_same_v<List, QList<bool>> ? 4 : int(sizeof(element)));
        return true;
    };
    return (isListOf(Elements()) || ...);
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
    if (m_level <= MaxLevels)
        add();
    else if (m_hasLimits)
        refuse(QLatin1String(TooDeep));
    else
        m_omissions.append(TooDeepLeftOut);
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
