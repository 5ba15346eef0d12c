// SPDX-License-Identifier: BSD-3-Clause
// Reads a URI and writes an intent. The input is {"uri": "intent://...", "name": "X", "hints": {}, "params": {}}.
#include <Core/intent_uri.h>

#include <expect.h>
#include <json_input.h>
#include <target.h>

#include <QtCore/QUrl>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Fuzz;

namespace {

struct Intent
{
    QString name;
    QJsonObject hints;
    QJsonObject params;

    bool operator==(const Intent &other) const
    {
        return name == other.name && hints == other.hints && params == other.params;
    }
};

QDebug operator<<(QDebug debug, const Intent &intent)
{
    return debug << intent.name << toText(intent.hints) << toText(intent.params);
}

Intent read(const QUrl &uri)
{
    const auto [name, hints, params] = Core::IntentUri::fromUri(uri);
    return {name, hints, params};
}

QJsonValue modelValue(const QString &text)
{
    const QString type = text.left(2);
    const QString rest = text.mid(2);
    if (type == "d.")
        return rest.toDouble();
    if (type == "i.")
        return rest.toInt();
    if (type == "B.")
        return rest == "true";
    return type == "S." ? QJsonValue(rest) : QJsonValue();
}

bool isUnreserved(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c && std::strchr("-._~", c));
}

/// Returns the value of a hexadecimal digit, or -1 for another character.
int digitValue(uint c)
{
    if (c >= '0' && c <= '9')
        return int(c - '0');
    const uint letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? int(letter - 'a') + 10 : -1;
}

/// Returns the byte with these two digits, or -1 if they are not digits.
int byteOf(uint high, uint low)
{
    const int highValue = digitValue(high);
    const int lowValue = digitValue(low);
    return highValue < 0 || lowValue < 0 ? -1 : highValue * 16 + lowValue;
}

/// Returns the byte of the escape at the index \a at, or -1 if there is no escape.
int escapedByte(const QString &text, int at)
{
    const QChar *const characters = text.constData();
    if (at + 2 >= text.size() || characters[at] != '%')
        return -1;
    return byteOf(characters[at + 1].unicode(), characters[at + 2].unicode());
}

/// Does the same, but only accepts digits in upper case, as in the normal form of a URI.
int escapedByte(const QByteArray &text, int at)
{
    const char *const bytes = text.constData();
    if (at + 2 >= text.size() || bytes[at] != '%' || bytes[at + 1] >= 'a' || bytes[at + 2] >= 'a')
        return -1;
    return byteOf(std::uint8_t(bytes[at + 1]), std::uint8_t(bytes[at + 2]));
}

/// Returns whether each percent sign begins an escape. Otherwise QUrl treats all of them as plain characters.
bool hasOnlyEscapes(const QString &text)
{
    for (int at = text.indexOf('%'); at >= 0; at = text.indexOf('%', at + 3)) {
        if (escapedByte(text, at) < 0)
            return false;
    }
    return true;
}

/// Returns the size of the UTF-8 sequence that begins with the byte \a first; 1 if the byte begins no longer sequence.
int utf8Size(int first)
{
    return 1 + int(first >= 0xc2) + int(first >= 0xe0) + int(first >= 0xf0);
}

/// Returns the character of the escaped UTF-8 sequence at the index \a at, or 0 if the sequence is not valid.
uint escapedCharacter(const QByteArray &text, int at)
{
    static const uint smallest[] = {UINT_MAX, 0x80, 0x800, 0x10000};
    const int first = escapedByte(text, at);
    const int size = utf8Size(first);
    uint character = uint(first) & (0x7fU >> size);
    for (int i = 1; i < size; ++i) {
        const int byte = escapedByte(text, at + 3 * i);
        if (byte < 0x80 || byte >= 0xc0)
            return 0;
        character = character << 6 | (uint(byte) & 0x3f);
    }
    const bool isText = first < 0xf8 && character >= smallest[size - 1] && character <= 0x10ffff
        && !QChar::isSurrogate(character) && !QChar::isNonCharacter(character);
    return isText ? character : 0;
}

/// Decodes the escapes in the text, except those of control characters, of the characters in \a kept, and of invalid
/// UTF-8.
QString decoded(const QByteArray &text, const char *kept)
{
    QString result;
    result.reserve(text.size());
    for (int at = 0; at < text.size();) {
        const int first = escapedByte(text, at);
        if (first < 0) {
            result.append(QLatin1Char(text[at++]));
        } else if (first < 0x80) {
            if (first < 0x20 || first == 0x7f || std::strchr(kept, first))
                result.append(QString::fromLatin1(text.mid(at, 3)));
            else
                result.append(QLatin1Char(char(first)));
            at += 3;
        } else if (const uint character = escapedCharacter(text, at)) {
            if (QChar::requiresSurrogates(character))
                result.append(QChar(QChar::highSurrogate(character))).append(QChar(QChar::lowSurrogate(character)));
            else
                result.append(QChar(character));
            at += 3 * utf8Size(first);
        } else {
            result.append(QString::fromLatin1(text.mid(at, 3)));
            at += 3;
        }
    }
    return result;
}

// Characters whose escapes are kept, because the plain character may have another meaning in a URI.
constexpr char KeptInFragment[] = "!#$%&'()*+,/:;=?@[]`";
constexpr char KeptInQuery[] = "!$%'()*+,/:;?@[]";

/// Parses a URI by the grammar of intents. QUrl decides about its validity and its normal form.
Intent modelRead(const QUrl &uri)
{
    const QByteArray text = uri.toEncoded();
    const int hash = text.indexOf('#');
    const int question = text.mid(0, hash).indexOf('?');
    const QString fragment = hash < 0 ? QString() : decoded(text.mid(hash + 1), KeptInFragment);
    const QString head = "Intent;name=";
    if (!uri.isValid() || !text.startsWith("intent:") || fragment.left(head.size()) != head
        || fragment.right(3) != "end")
        return {};

    Intent intent;
    QStringList parts = fragment.mid(head.size()).split(';');
    intent.name = parts.takeFirst();
    for (const QString &part : qAsConst(parts)) {
        if (part == "end")
            break;
        const QString key = part.section('=', 0, 0);
        const QJsonValue value = modelValue(part.section('=', 1));
        if (key.isEmpty() || value.isNull())
            return {};
        intent.params[key] = value;
    }

    QList<QByteArray> items =
        question < 0 ? QList<QByteArray>() : text.mid(question + 1, hash - question - 1).split('&');
    if (!items.isEmpty() && items.last().isEmpty())
        items.removeLast();
    for (const QByteArray &item : qAsConst(items)) {
        const int equals = item.indexOf('=');
        const QString value = equals < 0 ? QString() : decoded(item.mid(equals + 1), KeptInQuery);
        intent.hints[decoded(item.mid(0, equals), KeptInQuery)] = modelValue(value);
    }
    return intent;
}

bool isWritable(const QJsonValue &value)
{
    return value.isBool() || value.isDouble() || (value.isString() && !value.toString().contains(';'));
}

bool isWritable(const QJsonObject &object)
{
    return std::all_of(object.begin(), object.end(), [](const QJsonValue &value) { return isWritable(value); });
}

/// Returns whether the text reads back unchanged: no part of it is read as a delimiter or as an escape.
bool comesBack(const QString &text, const char *except)
{
    const QVector<uint> characters = text.toUcs4();
    return text == QString::fromUtf8(text.toUtf8())
        && std::none_of(characters.begin(), characters.end(), [except](uint c) {
               return c < 0x20 || c == 0x7f || QChar::isNonCharacter(c) || (c < 0x80 && std::strchr(except, int(c)));
           });
}

bool comesBack(const QJsonObject &object, const char *exceptInKeys, const char *exceptInTexts)
{
    const QStringList keys = object.keys();
    return std::all_of(keys.begin(), keys.end(), [=](const QString &key) { return comesBack(key, exceptInKeys); })
        && std::all_of(object.begin(), object.end(), [=](const QJsonValue &value) {
               return !value.isString() || comesBack(value.toString(), exceptInTexts);
           });
}

/// Returns whether the written URI has the same content as the intent.
bool comesBack(const Intent &intent)
{
    return comesBack(intent.name, "%;#`") && comesBack(intent.hints, "%", "%") && !intent.params.contains(QString())
        && comesBack(intent.params, "%;#`=", "%#`");
}

QString numberText(double number)
{
    char text[32] = {};
    std::snprintf(text, sizeof text, "%.6g", number);
    return QString::fromLatin1(text);
}

/// Rounds the numbers to the six digits that are written.
QJsonObject rounded(QJsonObject object)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        if (member.value().isDouble())
            member.value() = std::strtod(qPrintable(numberText(member.value().toDouble())), nullptr);
    }
    return object;
}

QString modelText(const QJsonValue &value)
{
    if (value.isString())
        return "S." + value.toString();
    if (value.isBool())
        return value.toBool() ? "B.true" : "B.false";
    return "d." + numberText(value.toDouble());
}

/// Returns the text as part of a URI. Keeps its escapes, except those of unreserved characters.
QByteArray encoded(const QString &text, const char *literal)
{
    const bool hasEscapes = hasOnlyEscapes(text);
    QByteArray result;
    result.reserve(3 * text.size());
    const auto addEscaped = [&result](uint byte) {
        constexpr char Digits[] = "0123456789ABCDEF";
        result.append('%').append(Digits[byte >> 4]).append(Digits[byte & 0xf]);
    };
    for (int at = 0; at < text.size(); ++at) {
        uint c = text[at].unicode();
        const bool isEscape = hasEscapes && c == '%';
        if (isEscape) {
            c = uint(escapedByte(text, at));
            at += 2;
        } else if (QChar::isHighSurrogate(c) && at + 1 < text.size() && text[at + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(ushort(c), text[++at].unicode());
        }

        if (c < 0x80 && (isUnreserved(char(c)) || (!isEscape && c != 0 && std::strchr(literal, int(c))))) {
            result.append(char(c));
        } else if (c < 0x80 || isEscape) {
            addEscaped(c);
        } else { // UTF-8, also for a lone surrogate
            const int size = 2 + int(c >= 0x800) + int(c >= 0x10000);
            addEscaped((0xf00U >> size & 0xff) | c >> 6 * (size - 1));
            for (int i = size - 2; i >= 0; --i)
                addEscaped(0x80 | (c >> 6 * i & 0x3f));
        }
    }
    return result;
}

/// Returns the expected URI of \a intent.
QByteArray modelWrite(const Intent &intent)
{
    if (intent.name.isEmpty() || !isWritable(intent.hints) || !isWritable(intent.params))
        return {};
    QByteArrayList items;
    const QStringList hints = intent.hints.keys();
    for (const QString &key : hints)
        items.append(encoded(key, "!$'()*+,/:;?@[]") + '=' + encoded(modelText(intent.hints[key]), "!$'()*+,/:;?@[]"));
    QStringList parts("Intent;name=" + intent.name);
    const QStringList params = intent.params.keys();
    for (const QString &key : params)
        parts.append(key + '=' + modelText(intent.params[key]));
    parts.append("end");
    return "intent://" + (items.isEmpty() ? QByteArray() : '?' + items.join('&')) + '#'
        + encoded(parts.join(';'), "!$&'()*+,/:;=?@[]");
}

/// Compares the written URI, and the intent that is read from this URI, with the model.
void checkWriting(const Intent &intent)
{
    const QByteArray written = Core::IntentUri::toUri(intent.name, intent.hints, intent.params).toEncoded();
    expectEqual("Written URI", written, modelWrite(intent));
    if (written.isEmpty())
        return;
    const QUrl uri = QUrl::fromEncoded(written);
    const Intent back = read(uri);
    expectEqual("Intent read from the written URI", back, modelRead(uri));
    if (comesBack(intent))
        expectEqual("Intent after the round trip", back,
                    Intent{intent.name, rounded(intent.hints), rounded(intent.params)});
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    if (hasNoncharacters(input))
        return; // QUrl writes only one surrogate of a noncharacter beyond U+FFFF
    takeWarnings();

    // The second conversion normalizes the URI: from a text, QUrl keeps a second number sign, which is not valid.
    const QUrl uri = QUrl::fromEncoded(QUrl(input.value("uri").toString()).toEncoded());
    const Intent first = read(uri);
    expectEqual("Read intent", first, modelRead(uri));
    checkWriting(first);
    checkWriting({input.value("name").toString(), input.value("hints").toObject(), input.value("params").toObject()});
}
