// SPDX-License-Identifier: BSD-3-Clause
#include "wire_model.h"

#include <QtCore/QJsonArray>

#include <algorithm>

namespace Fuzz {

namespace {

/// Whether an array has elements of one type only, and therefore a typed form.
bool isTypedArray(const QJsonArray &array, Place place)
{
    const QJsonValue::Type type = array.first().type();
    return place != Place::Mixed && !array.isEmpty()
        && std::all_of(array.begin(), array.end(), [type](const QJsonValue &value) { return value.type() == type; });
}

class Writer
{
public:
    QString text;
    QStringList warnings;

    QJsonObject object(const QJsonObject &object, Place place)
    {
        QJsonObject json;
        QVector<int> entries;
        text += '{';
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QJsonValue value = member.value();
            const QString signature = signatureOf(value, place);
            if (signature.isEmpty())
                continue;
            if (!entries.isEmpty())
                text += ", ";
            entries.append(text.size());
            const QString key = arriving(member.key());
            text += '"';
            text += key;
            text += "\": ";
            json.insert(key, variant(signature, value, place));
        }
        sortEntries(&text, entries);
        text += '}';
        return json;
    }

private:
    /// Returns an empty signature, with a warning, if D-Bus cannot represent the value.
    QString signatureOf(const QJsonValue &value, Place place)
    {
        switch (value.type()) {
        case QJsonValue::Bool:
            return "b";
        case QJsonValue::Double:
            return "d";
        case QJsonValue::String:
            return "s";
        case QJsonValue::Object:
            return "a{sv}";
        case QJsonValue::Array:
            break;
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            warnings.append("Unknown JSON value type");
            return {};
        }
        const QJsonArray array = value.toArray();
        if (!isTypedArray(array, place))
            return "av";
        if (array.first().isArray()) {
            warnings.append("JSON array of arrays are not supported");
            return {};
        }
        const QString element = signatureOf(array.first(), place);
        return element.isEmpty() ? element : 'a' + element;
    }

    QJsonValue value(const QJsonValue &value, Place place)
    {
        switch (value.type()) {
        case QJsonValue::Bool:
            text += value.toBool() ? "true" : "false";
            return value;
        case QJsonValue::Double:
            text += QString::number(value.toDouble(), 'g', 17);
            return value;
        case QJsonValue::Array:
            return array(value.toArray(), place);
        case QJsonValue::Object:
            return object(value.toObject(), place);
        default:
            break;
        }
        const QString string = arriving(value.toString());
        text += '"';
        text += string;
        text += '"';
        return string;
    }

    QJsonArray array(const QJsonArray &array, Place place)
    {
        const bool typed = isTypedArray(array, place);
        const bool isPlain = !typed || (array.first().isObject() && place == Place::Hints);
        const Place inside = isPlain ? Place::Mixed : place;
        QJsonArray json;
        text += '[';
        for (const auto &element : array) {
            const QString signature = signatureOf(element, inside);
            if (signature.isEmpty())
                continue;
            if (!json.isEmpty())
                text += ", ";
            json.append(typed ? value(element, inside) : variant(signature, element, inside));
        }
        text += ']';
        return json;
    }

    QJsonValue variant(const QString &signature, const QJsonValue &content, Place place)
    {
        text += '<';
        text += signature;
        text += ' ';
        const QJsonValue json = value(content, place);
        text += '>';
        return json;
    }

    /// Returns the received form of a text. UTF-8 has no lone surrogates; Qt removes a byte order mark at the start.
    static QString arriving(const QString &string)
    {
        const bool isSame = string.isValidUtf16() && !string.startsWith(QChar(QChar::ByteOrderMark));
        return isSame ? string : QString::fromUtf8(string.toUtf8());
    }
};

/// Whether the value has no form on the bus. An object that contains it omits its key too.
bool isOmitted(const QJsonValue &value, Place place)
{
    const QJsonArray array = value.toArray();
    return value.isNull() || (isTypedArray(array, place) && (array.first().isArray() || array.first().isNull()));
}

/// Returns the number of nested containers in the value, omitted members included. Sets \a hasNul if a text contains
/// U+0000.
int levelsOf(const QJsonValue &value, Place place, bool *hasNul)
{
    int levels = 0;
    if (value.isObject()) {
        levels = 1;
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member) {
            *hasNul |= !isOmitted(member.value(), place) && member.key().contains(QChar(QChar::Null));
            // the array, the entry and the variant
            levels = std::max(levels, 3 + levelsOf(member.value(), place, hasNul));
        }
    } else if (value.isArray()) {
        if (isOmitted(value, place))
            return 0;
        levels = 1;
        const QJsonArray array = value.toArray();
        const bool isTyped = isTypedArray(array, place);
        const Place inside = isTyped && place == Place::Params ? place : Place::Mixed;
        for (const auto &element : array)
            levels = std::max(levels, (isTyped ? 1 : 2) + levelsOf(element, inside, hasNul));
    } else {
        *hasNul |= value.toString().contains(QChar(QChar::Null));
    }
    return levels;
}

} // namespace

void sortEntries(QString *text, const QVector<int> &starts)
{
    constexpr int SeparatorSize = 2;
    const auto entry = [&](int i) {
        const int end = i + 1 < starts.size() ? starts[i + 1] - SeparatorSize : text->size();
        return text->midRef(starts[i], end - starts[i]);
    };
    bool isSorted = true;
    for (int i = 1; i < starts.size() && isSorted; ++i)
        isSorted = entry(i - 1) <= entry(i);
    if (isSorted)
        return;
    QStringList entries;
    for (int i = 0; i < starts.size(); ++i)
        entries.append(entry(i).toString());
    entries.sort();
    text->truncate(starts.first());
    text->append(entries.join(", "));
}

Wire wireOf(const QJsonObject &object, Place place)
{
    Writer writer;
    const QJsonObject json = writer.object(object, place);
    return {writer.text, json, writer.warnings};
}

QStringList refusals(const QJsonValue &value, Place place)
{
    QStringList texts;
    bool hasNul = false;
    if (levelsOf(value, place, &hasNul) > 63)
        texts.append("A message cannot nest more than 63 containers");
    if (hasNul)
        texts.append("A message cannot hold a text with U+0000");
    return texts;
}

} // namespace Fuzz
