// SPDX-License-Identifier: BSD-3-Clause
// A URI to be read, and an intent to be written: {"uri": "intent://...", "name": "X", "hints": {}, "params": {}}.
#include <Core/intent_uri.h>

#include <expect.h>
#include <json_input.h>
#include <target.h>

#include <QtCore/QUrl>

#include <algorithm>
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
    if (type == QLatin1String("d."))
        return rest.toDouble();
    if (type == QLatin1String("i."))
        return rest.toInt();
    if (type == QLatin1String("B."))
        return rest == QLatin1String("true");
    return type == QLatin1String("S.") ? QJsonValue(rest) : QJsonValue();
}

bool isUnreserved(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c && std::strchr("-._~", c));
}

/// Whether each percent sign begins an escape. If not, none is taken for one.
bool hasOnlyEscapes(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('%'));
    return std::all_of(parts.begin() + 1, parts.end(), [](const QString &part) {
        const QByteArray digits = part.left(2).toLatin1().toLower();
        return digits.size() == 2 && QByteArray::fromHex(digits).toHex() == digits;
    });
}

/// How many bytes the character takes in UTF-8 that begins with this one; 1 for what begins none beyond ASCII.
int utf8Size(std::uint8_t first)
{
    return 1 + int(first >= 0xc2) + int(first >= 0xe0) + int(first >= 0xf0);
}

/// The text without its escapes, but for those of control characters, of \a kept, and of what is no Unicode text.
QString decoded(const QByteArray &text, const char *kept)
{
    QString result;
    for (int at = 0; at < text.size();) {
        if (text[at] != '%') {
            result.append(QLatin1Char(text[at++]));
            continue;
        }
        const auto first = std::uint8_t(text.mid(at + 1, 2).toUInt(nullptr, 16));
        const QByteArray escape = text.mid(at, 3 * utf8Size(first));
        const QByteArray bytes = QByteArray::fromHex(QByteArray(escape).replace('%', ""));
        const QString character = QString::fromUtf8('.' + bytes).mid(1); // at the start U+FEFF would be left out
        const bool isControl = first < 0x20 || first == 0x7f;
        const bool isText = '%' + bytes.toHex('%').toUpper() == escape && bytes.size() == utf8Size(first)
            && character.toUtf8() == bytes && !QChar::isNonCharacter(character.toUcs4().value(0));
        if (isControl || !isText || (first < 0x80 && std::strchr(kept, char(first)))) {
            result.append(QString::fromLatin1(text.mid(at, 3)));
            at += 3;
        } else {
            result.append(character);
            at += escape.size();
        }
    }
    return result;
}

// Escapes that stay: of what may stand for itself, where the escape may mean something else.
constexpr char KeptInFragment[] = "!#$%&'()*+,/:;=?@[]`";
constexpr char KeptInQuery[] = "!$%'()*+,/:;?@[]";

/// What a URI says, by the grammar. Which ones are valid, and their normal form, is QUrl's business.
Intent modelRead(const QUrl &uri)
{
    const QByteArray text = uri.toEncoded();
    const int hash = text.indexOf('#');
    const int question = text.mid(0, hash).indexOf('?');
    const QString fragment = hash < 0 ? QString() : decoded(text.mid(hash + 1), KeptInFragment);
    const QString head = QStringLiteral("Intent;name=");
    if (!uri.isValid() || !text.startsWith("intent:") || fragment.left(head.size()) != head
        || fragment.right(3) != QLatin1String("end"))
        return {};

    Intent intent;
    QStringList parts = fragment.mid(head.size()).split(QLatin1Char(';'));
    intent.name = parts.takeFirst();
    for (const QString &part : qAsConst(parts)) {
        if (part == QLatin1String("end"))
            break;
        const QString key = part.section(QLatin1Char('='), 0, 0);
        const QJsonValue value = modelValue(part.section(QLatin1Char('='), 1));
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
    return value.isBool() || value.isDouble() || (value.isString() && !value.toString().contains(QLatin1Char(';')));
}

bool isWritable(const QJsonObject &object)
{
    return std::all_of(object.begin(), object.end(), [](const QJsonValue &value) { return isWritable(value); });
}

/// Nothing in it is read as something else, or as an escape.
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

/// What is written of the intent says the same.
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

/// What is left of the numbers, of which six digits are written.
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
        return QStringLiteral("S.") + value.toString();
    if (value.isBool())
        return value.toBool() ? QStringLiteral("B.true") : QStringLiteral("B.false");
    return QStringLiteral("d.") + numberText(value.toDouble());
}

/// The first character of the text, which may be half of one, in UTF-8.
QByteArray firstCharacter(const QString &text)
{
    const ushort unit = text[0].unicode();
    if (!QChar::isSurrogate(unit))
        return QString(text[0]).toUtf8();
    if (text.size() > 1 && QChar::isHighSurrogate(unit) && text[1].isLowSurrogate())
        return text.left(2).toUtf8();
    const char bytes[] = {char(0xe0 | unit >> 12), char(0x80 | (unit >> 6 & 0x3f)), char(0x80 | (unit & 0x3f))};
    return {bytes, sizeof bytes};
}

/// The text in a URI. Escapes stay, but those of characters that need none.
QByteArray encoded(const QString &text, const char *literal)
{
    const bool hasEscapes = hasOnlyEscapes(text);
    QByteArray result;
    for (int at = 0; at < text.size();) {
        const bool isEscape = hasEscapes && text[at] == QLatin1Char('%');
        const QByteArray bytes =
            isEscape ? QByteArray::fromHex(text.mid(at + 1, 2).toLatin1()) : firstCharacter(text.mid(at, 2));
        for (const char byte : bytes) {
            if (isUnreserved(byte) || (!isEscape && byte && std::strchr(literal, byte)))
                result.append(byte);
            else
                result.append('%' + QByteArray(1, byte).toHex().toUpper());
        }
        at += isEscape ? 3 : 1 + int(bytes.size() == 4);
    }
    return result;
}

/// The text of the URI that \a intent is to give.
QByteArray modelWrite(const Intent &intent)
{
    if (intent.name.isEmpty() || !isWritable(intent.hints) || !isWritable(intent.params))
        return {};
    QByteArrayList items;
    const QStringList hints = intent.hints.keys();
    for (const QString &key : hints)
        items.append(encoded(key, "!$'()*+,/:;?@[]") + '=' + encoded(modelText(intent.hints[key]), "!$'()*+,/:;?@[]"));
    QStringList parts(QStringLiteral("Intent;name=") + intent.name);
    const QStringList params = intent.params.keys();
    for (const QString &key : params)
        parts.append(key + QLatin1Char('=') + modelText(intent.params[key]));
    parts.append(QStringLiteral("end"));
    return "intent://" + (items.isEmpty() ? QByteArray() : '?' + items.join('&')) + '#'
        + encoded(parts.join(QLatin1Char(';')), "!$&'()*+,/:;=?@[]");
}

/// The intent is written as the model says, and what is read of it is what was to be expected.
void checkWriting(const Intent &intent)
{
    const QByteArray written = Core::IntentUri::toUri(intent.name, intent.hints, intent.params).toEncoded();
    expectEqual("What is written", written, modelWrite(intent));
    if (written.isEmpty())
        return;
    const QUrl uri = QUrl::fromEncoded(written);
    expectEqual("What is read of what was written", read(uri), modelRead(uri));
    if (comesBack(intent))
        expectEqual("What comes back", read(uri), Intent{intent.name, rounded(intent.hints), rounded(intent.params)});
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    if (hasNoncharacters(input))
        return; // QUrl writes half of one that is beyond U+FFFF
    takeWarnings();

    // In its normal form: of a text QUrl keeps a second number sign as it is, which a URI has not.
    const QUrl uri = QUrl::fromEncoded(QUrl(input.value(QLatin1String("uri")).toString()).toEncoded());
    const Intent first = read(uri);
    expectEqual("What is read", first, modelRead(uri));
    checkWriting(first);
    checkWriting({input.value(QLatin1String("name")).toString(), input.value(QLatin1String("hints")).toObject(),
                  input.value(QLatin1String("params")).toObject()});
}
