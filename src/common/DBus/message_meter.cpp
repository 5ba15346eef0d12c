// SPDX-License-Identifier: BSD-3-Clause
#include "message_meter.h"

#include "message_limits.h"
#include "variants.h"

#include <QtCore/QSequentialIterable>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusSignature>

#include <cstring>

namespace Corvane {

namespace {

constexpr qint64 MaxArrayBody = qint64(64) * 1024 * 1024;
constexpr qint64 MaxHeader = 4096; // everything but our own object path is a name of at most 255 bytes
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

/// Returns the alignment of a value, given the first character of its signature. It is also the size of a value of
/// fixed size.
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

/// Texts may be most of a payload. The loop has no early exit, so that the compiler vectorises it.
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

/// Returns a null pointer for a type that QtDBus does not send. Most members are of the first three types, for which
/// the function of QtDBus would take a noticeable part of the time.
const char *signatureOf(int type)
{
    switch (type) {
    case QMetaType::Bool:
        return "b";
    case QMetaType::Double:
        return "d";
    case QMetaType::QString:
        return "s";
    default:
        return QDBusMetaType::typeToSignature(type);
    }
}

bool hasFixedSize(char code)
{
    return std::strchr("ybnqiuxtdh", code);
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
    addElements(texts, 4);
}

void MessageMeter::add(const QVariantMap &map)
{
    addArray(8, [&] {
        for (auto member = map.begin(); member != map.end() && m_problem.isEmpty(); ++member)
            addMember(member.key(), member.value());
    });
}

void MessageMeter::add(const BusObject &object)
{
    addArray(8, [&] {
        for (auto member = object.members.begin(); member != object.members.end() && m_problem.isEmpty(); ++member)
            addMember(member->key, member->value);
    });
}

void MessageMeter::add(const Omissions &omissions)
{
    if (omissions.isTooDeep())
        refuse(QLatin1String(TooDeep));
}

QString MessageMeter::problem() const
{
    if (m_problem.isEmpty() && m_size > MaxBody)
        return QStringLiteral("A message cannot be longer than 128 MiB");
    return m_problem;
}

/// Adds the content of a variant, which begins with its signature.
void MessageMeter::add(const QVariant &content)
{
    if (const char *const signature = signatureOf(content.userType())) {
        addSignature(signature[1] == '\0' ? 1 : int(std::strlen(signature)));
        addValue(content, signature);
    } else if (content.userType() == qMetaTypeId<QDBusArgument>()) {
        const auto arg = content.value<QDBusArgument>();
        const QByteArray unread = arg.currentSignature().toLatin1();
        addSignature(unread.size());
        if (arg.currentType() != QDBusArgument::UnknownType)
            addNext(arg);
        else if (!unread.isEmpty())
            addUnread(unread.constData()); // the application has written it; it cannot be read
    }
}

void MessageMeter::addValue(const QVariant &value, const char *signature)
{
    switch (signature[0]) {
    case 's':
        return add(value.toString());
    case 'o':
        return add(value.value<QDBusObjectPath>().path());
    case 'g':
        return addSignature(value.value<QDBusSignature>().signature().size());
    case 'v':
        return nest(1, [&] { add(value.value<QDBusVariant>().variant()); });
    case 'a':
        return addContainer(value, signature);
    default: // a number, a file descriptor or a structure
        addUnread(signature);
    }
}

void MessageMeter::addContainer(const QVariant &container, const char *signature)
{
    const int type = container.userType();
    if (type == qMetaTypeId<BusObject>()) {
        add(container.value<BusObject>());
    } else if (type == QMetaType::QVariantMap) {
        add(container.toMap());
    } else if (type == QMetaType::QVariantList) {
        addElements(container.toList(), 1, 1);
    } else if (type == QMetaType::QStringList) {
        add(container.toStringList());
    } else if (type == qMetaTypeId<QVector<BusObject>>()) {
        addElements(container.value<QVector<BusObject>>(), 4);
    } else if (type == QMetaType::QByteArray) {
        addFixedArray(container.toByteArray().size(), 'y');
    } else if (!isSequence(container)) {
        addUnread(signature);
    } else if (const auto elements = container.value<QSequentialIterable>(); hasFixedSize(signature[1])) {
        addFixedArray(elements.size(), signature[1]);
    } else {
        addArray(alignmentOf(signature[1]), [&] {
            for (auto element = elements.begin(); element != elements.end() && m_problem.isEmpty(); ++element)
                addValue(*element, signature + 1);
        });
    }
}

/// Adds a value of which only the signature is known, because the application or Qt marshals it. Texts count as empty,
/// and arrays as arrays of one element. Returns the rest of the signature.
const char *MessageMeter::addUnread(const char *signature)
{
    const char code = *signature++;
    switch (code) {
    case 's':
    case 'o':
        add(QString());
        return signature;
    case 'g':
        addSignature(0);
        return signature;
    case 'v':
        nest(1, [&] { addSignature(1); });
        return signature;
    case 'h':
        addDescriptors(1);
        break;
    case 'a':
        addArray(alignmentOf(*signature), [&] { signature = addUnread(signature); });
        return signature;
    case '(':
    case '{':
        align(8);
        nest(1, [&] {
            while (*signature != ')' && *signature != '}' && m_problem.isEmpty())
                signature = addUnread(signature);
        });
        return m_problem.isEmpty() ? signature + 1 : signature;
    default:
        break;
    }
    addFixed(alignmentOf(code));
    return signature;
}

/// Adds the next value of \a arg.
void MessageMeter::addNext(const QDBusArgument &arg)
{
    switch (arg.currentType()) {
    case QDBusArgument::BasicType: {
        const QByteArray signature = arg.currentSignature().toLatin1();
        return addValue(arg.asVariant(), signature.constData());
    }
    case QDBusArgument::VariantType: {
        const QVariant content = qdbus_cast<QDBusVariant>(arg).variant();
        return nest(1, [&] { add(content); });
    }
    case QDBusArgument::ArrayType:
        arg.beginArray();
        addArray(alignmentOf(arg.currentSignature().leftRef(1).toLatin1().at(0)), [&] {
            while (!arg.atEnd() && m_problem.isEmpty())
                addNext(arg);
        });
        return arg.endArray();
    case QDBusArgument::MapType:
        arg.beginMap();
        addArray(8, [&] {
            while (!arg.atEnd() && m_problem.isEmpty()) {
                arg.beginMapEntry();
                align(8);
                nest(1, [&] {
                    addNext(arg);
                    addNext(arg);
                });
                arg.endMapEntry();
            }
        });
        return arg.endMap();
    case QDBusArgument::StructureType:
        align(8);
        arg.beginStructure();
        while (!arg.atEnd() && m_problem.isEmpty())
            nest(1, [&] { addNext(arg); });
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

void MessageMeter::addMember(const QString &key, const QVariant &content)
{
    align(8);
    add(key);
    nest(2, [&] { add(content); }); // the entry and the variant
}

template<typename List>
void MessageMeter::addElements(const List &list, int alignment, int levels)
{
    addArray(alignment, [&] {
        for (auto element = list.begin(); element != list.end() && m_problem.isEmpty(); ++element)
            nest(levels, [&] { add(*element); });
    });
}

void MessageMeter::addFixedArray(int count, char code)
{
    if (code == 'h')
        addDescriptors(count);
    const int size = alignmentOf(code);
    addArray(size, [&] { m_size += qint64(count) * size; });
}

template<typename AddElements>
void MessageMeter::addArray(int alignment, AddElements addElements)
{
    addFixed(4);
    align(alignment);
    const qint64 start = m_size;
    nest(1, addElements);
    if (m_size - start > MaxArrayBody)
        refuse(QStringLiteral("A message cannot hold an array or object of more than 64 MiB"));
}

template<typename Add>
void MessageMeter::nest(int levels, Add add)
{
    m_level += levels;
    if (m_level <= MaxLevels)
        add();
    else
        refuse(QLatin1String(TooDeep));
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
    m_size += length + 2; // a length byte before it, a NUL after it
}

void MessageMeter::refuse(const QString &problem)
{
    if (m_problem.isEmpty())
        m_problem = problem;
}

} // namespace Corvane
