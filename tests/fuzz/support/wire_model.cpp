// SPDX-License-Identifier: BSD-3-Clause
#include "wire_model.h"

#include <QtCore/QJsonArray>
#include <QtCore/QSet>

#include <algorithm>

namespace Fuzz {

namespace {

struct Part
{
    QString signature; ///< empty if the bus has no form for the value
    QString text;
    QJsonValue json;
};

class Writer
{
public:
    QStringList warnings;

    Part object(const QJsonObject &object, Place place)
    {
        QStringList entries;
        QJsonObject json;
        for (auto member = object.begin(); member != object.end(); ++member) {
            const Part part = value(member.value(), place);
            if (part.signature.isEmpty())
                continue;
            const QString key = text(member.key());
            entries.append(QStringLiteral("\"%1\": ").arg(key) + variant(part));
            json.insert(key, part.json);
        }
        entries.sort();
        return {QStringLiteral("a{sv}"), QLatin1Char('{') + entries.join(QLatin1String(", ")) + QLatin1Char('}'), json};
    }

private:
    Part value(const QJsonValue &value, Place place)
    {
        switch (value.type()) {
        case QJsonValue::Bool:
            return {QStringLiteral("b"), value.toBool() ? QStringLiteral("true") : QStringLiteral("false"), value};
        case QJsonValue::Double:
            return {QStringLiteral("d"), QString::number(value.toDouble(), 'g', 17), value};
        case QJsonValue::String: {
            const QString arriving = text(value.toString());
            return {QStringLiteral("s"), QLatin1Char('"') + arriving + QLatin1Char('"'), arriving};
        }
        case QJsonValue::Array:
            return array(value.toArray(), place);
        case QJsonValue::Object:
            return object(value.toObject(), place);
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            break;
        }
        warnings.append(QStringLiteral("Unknown JSON value type"));
        return {};
    }

    Part array(const QJsonArray &array, Place place)
    {
        QSet<int> types;
        for (const auto &element : array)
            types.insert(int(element.type()));
        const bool isTyped = types.size() == 1 && place != Place::Mixed;
        if (isTyped && types.contains(QJsonValue::Array)) {
            warnings.append(QStringLiteral("JSON array of arrays are not supported"));
            return {};
        }
        if (isTyped && types.contains(QJsonValue::Null)) {
            warnings.append(QStringLiteral("Unknown JSON value type"));
            return {};
        }
        const bool isPlain = !isTyped || (types.contains(QJsonValue::Object) && place == Place::Hints);
        QString signature = QStringLiteral("av");
        QStringList texts;
        QJsonArray json;
        for (const auto &element : array) {
            const Part part = value(element, isPlain ? Place::Mixed : place);
            if (part.signature.isEmpty())
                continue;
            if (isTyped)
                signature = QLatin1Char('a') + part.signature;
            texts.append(isTyped ? part.text : variant(part));
            json.append(part.json);
        }
        return {signature, QLatin1Char('[') + texts.join(QLatin1String(", ")) + QLatin1Char(']'), json};
    }

    /// What arrives of a text: UTF-8 has no lone surrogates.
    static QString text(const QString &text) { return QString::fromUtf8(text.toUtf8()); }

    static QString variant(const Part &part)
    {
        return QLatin1Char('<') + part.signature + QLatin1Char(' ') + part.text + QLatin1Char('>');
    }
};

/// How deep the value nests, whatever is left out of it, and whether U+0000 is in it.
int levelsOf(const QJsonValue &value, Place place, bool *hasNul)
{
    int levels = 0;
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member) {
            *hasNul |= member.key().contains(QChar(QChar::Null));
            // the array, the entry and the variant
            levels = std::max(levels, 3 + levelsOf(member.value(), place, hasNul));
        }
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        const QJsonValue::Type type = array.first().type();
        const bool isTyped = place != Place::Mixed
            && std::all_of(array.begin(), array.end(), [type](const QJsonValue &v) { return v.type() == type; });
        if (isTyped && type != QJsonValue::String && type != QJsonValue::Object)
            return 0; // of fixed size, or left out as a whole
        const Place inside = isTyped && place == Place::Params ? place : Place::Mixed;
        for (const auto &element : array)
            levels = std::max(levels, (isTyped ? 1 : 2) + levelsOf(element, inside, hasNul));
    } else {
        *hasNul |= value.toString().contains(QChar(QChar::Null));
    }
    return levels;
}

} // namespace

Wire wireOf(const QJsonObject &object, Place place)
{
    Writer writer;
    const Part part = writer.object(object, place);
    return {part.text, part.json.toObject(), writer.warnings};
}

QStringList refusals(const QJsonValue &value, Place place)
{
    QStringList texts;
    bool hasNul = false;
    if (levelsOf(value, place, &hasNul) > 64)
        texts.append(QStringLiteral("A message cannot nest more than 64 containers"));
    if (hasNul)
        texts.append(QStringLiteral("A message cannot hold a text with U+0000"));
    return texts;
}

} // namespace Fuzz
