// SPDX-License-Identifier: BSD-3-Clause
#include "bus_value.h"

#include "bus_peer.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fcntl.h>

namespace Fuzz {

namespace {

constexpr char BasicTypes[] = "ybnqiuxtdsogh";
constexpr int MaxTypeLevel = 12; // keeps a signature within 255 bytes
constexpr int MaxLevel = 56; // keeps a message, with its outer containers, within the limit of the bus

bool isBasic(char type)
{
    return type != '\0' && std::strchr(BasicTypes, type);
}

int sizeOf(char type)
{
    switch (type) {
    case 'y':
        return 1;
    case 'n':
    case 'q':
        return 2;
    case 'x':
    case 't':
    case 'd':
        return 8;
    default:
        return 4;
    }
}

template<typename Number>
Number as(std::uint64_t bits)
{
    Number number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

/// Returns the text as Qt reads it: up to the first NUL, with invalid UTF-8 replaced.
QString textOf(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes.constData());
}

/// Returns the bytes as a text that sd-bus accepts: without U+0000 and noncharacters such as U+FFFF.
QByteArray busText(const QByteArray &bytes)
{
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return c > 0 && c < 0x7f; }))
        return bytes;
    QVector<uint> characters = QString::fromUtf8(bytes).toUcs4();
    const auto isRefused = [](uint c) { return c == 0 || QChar::isNonCharacter(c); };
    characters.erase(std::remove_if(characters.begin(), characters.end(), isRefused), characters.end());
    return QString::fromUcs4(characters.constData(), characters.size()).toUtf8();
}

QString unsupported(const BusValue &value)
{
    return QString("Unsupported type:  \"%1\"").arg(QString::fromLatin1(value.signature));
}

} // namespace

std::vector<QByteArray> completeTypes(const QByteArray &signature)
{
    std::vector<QByteArray> types;
    for (int at = 0; at < signature.size();) {
        const int start = at;
        while (signature[at] == 'a')
            ++at;
        int open = 0;
        do {
            open += signature[at] == '(' || signature[at] == '{';
            open -= signature[at] == ')' || signature[at] == '}';
            ++at;
        } while (open > 0);
        types.push_back(signature.mid(start, at - start));
    }
    return types;
}

bool BusValueReader::skip(char c)
{
    if (atEnd() || char(*m_data) != c)
        return false;
    ++m_data;
    return true;
}

QByteArray BusValueReader::text()
{
    QByteArray bytes;
    while (!atEnd() && !skip(';'))
        bytes.append(next());
    return bytes;
}

QByteArray BusValueReader::basicType(char c)
{
    return {1, isBasic(c) ? c : BasicTypes[std::uint8_t(c) % (sizeof BasicTypes - 1)]};
}

QByteArray BusValueReader::type(int level)
{
    const char c = next();
    if (c == 'v')
        return "v";
    if (level >= MaxTypeLevel || (c != 'a' && c != '('))
        return basicType(c);
    if (c == 'a') {
        if (!skip('{'))
            return 'a' + type(level + 1);
        const QByteArray key = basicType(next());
        const QByteArray value = type(level + 2); // an array and an entry
        skip('}');
        return "a{" + key + value + '}';
    }
    QByteArray members;
    do
        members += type(level + 1);
    while (!atEnd() && !skip(')') && members.size() < 16);
    return '(' + members + ')';
}

BusValue BusValueReader::value(const QByteArray &signature, int level)
{
    BusValue value;
    value.signature = signature;
    switch (signature[0]) {
    case 'v': {
        const QByteArray content = level < MaxLevel - MaxTypeLevel ? type() : basicType(next());
        value.parts.push_back(this->value(content, level + 1));
        break;
    }
    case 'a': {
        const QByteArray element = signature.mid(1);
        const int count = std::uint8_t(next() - '0') % 10;
        value.parts.reserve(std::size_t(count));
        for (int i = 0; i < count && !atEnd(); ++i)
            value.parts.push_back(this->value(element, level + 1));
        break;
    }
    case '(':
    case '{': {
        const auto types = completeTypes(signature.mid(1, signature.size() - 2));
        value.parts.reserve(types.size());
        for (const QByteArray &type : types)
            value.parts.push_back(this->value(type, level + 1));
        break;
    }
    case 's':
        value.text = busText(text());
        break;
    case 'o': {
        const QByteArray name = text();
        value.text = "/";
        for (const char c : name)
            value.text += (c >= 'a' && c <= 'z') ? c : '_';
        break;
    }
    case 'g':
        value.text = type();
        break;
    case 'b':
        value.number = next() & 1;
        break;
    case 'h':
        ++m_descriptors;
        break;
    default:
        for (int i = 0; i < sizeOf(signature[0]); ++i)
            value.number |= std::uint64_t(std::uint8_t(next())) << (8 * i);
        break;
    }
    return value;
}

void append(sd_bus_message *message, const BusValue &value)
{
    const char type = value.signature[0];
    if (isBasic(type)) {
        static const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        const void *data = &value.number; // little-endian: a smaller number is in the first bytes
        if (type == 'h')
            data = &descriptor;
        else if (type == 's' || type == 'o' || type == 'g')
            data = value.text.constData();
        check(sd_bus_message_append_basic(message, type, data), "write a value");
        return;
    }

    char container = type;
    QByteArray contents = value.signature.mid(1, value.signature.size() - 2);
    if (type == '(') {
        container = SD_BUS_TYPE_STRUCT;
    } else if (type == '{') {
        container = SD_BUS_TYPE_DICT_ENTRY;
    } else if (type == 'a') {
        contents = value.signature.mid(1);
    } else {
        contents = value.parts.front().signature;
    }
    check(sd_bus_message_open_container(message, container, contents.constData()), "open a container");
    for (const BusValue &part : value.parts)
        append(message, part);
    check(sd_bus_message_close_container(message), "close a container");
}

double numberOf(const BusValue &value)
{
    switch (value.signature[0]) {
    case 'n':
        return as<std::int16_t>(value.number);
    case 'i':
        return as<std::int32_t>(value.number);
    case 'x':
        return double(as<std::int64_t>(value.number));
    case 'd':
        return as<double>(value.number);
    default:
        return double(value.number);
    }
}

QJsonValue jsonOf(const BusValue &value, QStringList *warnings)
{
    switch (value.signature[0]) {
    case 'b':
        return value.number != 0;
    case 's':
        return textOf(value.text);
    case 'o':
    case 'g':
    case 'h':
        return QJsonValue::Null;
    case 'v':
        return jsonOf(value.parts.front(), warnings);
    case '(':
        warnings->append(unsupported(value));
        return QJsonValue::Null;
    case 'a':
        break;
    default:
        return std::isfinite(numberOf(value)) ? QJsonValue(numberOf(value)) : QJsonValue();
    }

    if (value.signature == "ay") {
        QByteArray bytes;
        for (const BusValue &byte : value.parts)
            bytes.append(char(byte.number));
        const QString text = textOf(bytes);
        return text.isEmpty() ? QJsonValue() : text; // like QJsonValue::fromVariant()
    }
    if (value.signature[1] == '{') {
        QJsonObject object;
        for (const BusValue &entry : value.parts) {
            const BusValue &key = entry.parts.front();
            // The library does not read a key that is not a text; it reads that key in place of the value.
            if (key.signature == "s" || key.signature == "o" || key.signature == "g")
                object[textOf(key.text)] = jsonOf(entry.parts.back(), warnings);
            else
                object[QString()] = jsonOf(key, warnings);
        }
        return object;
    }
    QJsonArray array;
    for (const BusValue &element : value.parts) {
        if (element.signature[0] == '(') { // the first one ends the array
            warnings->append(unsupported(element));
            break;
        }
        array.append(jsonOf(element, warnings));
    }
    return array;
}

} // namespace Fuzz
