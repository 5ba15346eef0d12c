// SPDX-License-Identifier: BSD-3-Clause
// A URI to be read, and an intent to be written: {"uri": "intent://...", "name": "X", "hints": {}, "params": {}}.
#include <Core/intent_uri.h>

#include <expect.h>
#include <json_input.h>

#include <QtCore/QUrlQuery>

#include <algorithm>
#include <cmath>

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

/// What a URI says, by the grammar of the fragment.
Intent modelRead(const QUrl &uri)
{
    const QString head = QStringLiteral("Intent;name=");
    const QString fragment = uri.fragment();
    if (!uri.isValid() || uri.scheme() != QLatin1String("intent") || fragment.left(head.size()) != head
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
    const auto items = QUrlQuery(uri).queryItems();
    for (const auto &[key, text] : items)
        intent.hints[key] = modelValue(text);
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

/// Nothing in it has a meaning in URIs, or a form that the URL classes change.
bool isPlain(const QString &text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) {
        return c.unicode() < 0x80 && (c.isLetterOrNumber() || QLatin1String("-._~/ ").contains(c));
    });
}

bool isPlain(const QJsonObject &object)
{
    const QStringList keys = object.keys();
    return std::all_of(keys.begin(), keys.end(), [](const QString &key) { return !key.isEmpty() && isPlain(key); })
        && std::all_of(object.begin(), object.end(),
                       [](const QJsonValue &value) { return !value.isString() || isPlain(value.toString()); });
}

/// What is left of the numbers, of which six digits are written.
QJsonObject rounded(QJsonObject object)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const double number = member.value().toDouble();
        char text[32] = {};
        std::snprintf(text, sizeof text, "%.6g", number);
        if (member.value().isDouble())
            member.value() = std::strtod(text, nullptr);
    }
    return object;
}

QString modelText(const QJsonValue &value)
{
    if (value.isString())
        return QStringLiteral("S.") + value.toString();
    if (value.isBool())
        return value.toBool() ? QStringLiteral("B.true") : QStringLiteral("B.false");
    return QStringLiteral("d.") + QString::number(value.toDouble(), 'g', 6);
}

/// The URI that \a intent is to give, what QUrl makes of its parts being QUrl's business.
QUrl modelWrite(const Intent &intent)
{
    if (intent.name.isEmpty() || !isWritable(intent.hints) || !isWritable(intent.params))
        return {};
    QUrlQuery query;
    const QStringList hints = intent.hints.keys();
    for (const QString &key : hints)
        query.addQueryItem(key, modelText(intent.hints[key]));
    QStringList parts(QStringLiteral("Intent;name=") + intent.name);
    const QStringList params = intent.params.keys();
    for (const QString &key : params)
        parts.append(key + QLatin1Char('=') + modelText(intent.params[key]));
    parts.append(QStringLiteral("end"));

    QUrl url(QStringLiteral("intent://"));
    url.setQuery(query);
    url.setFragment(parts.join(QLatin1Char(';')), QUrl::TolerantMode);
    return url;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    takeWarnings();

    const QUrl uri(input.value(QLatin1String("uri")).toString());
    const Intent first = read(uri);
    expectEqual("What is read", first, modelRead(uri));
    const QUrl again = Core::IntentUri::toUri(first.name, first.hints, first.params);
    expectEqual("What is written of what was read", again, modelWrite(first));
    if (!again.isEmpty() && isPlain(first.name) && isPlain(first.hints) && isPlain(first.params))
        expectEqual("What is read of it again", read(again),
                    Intent{first.name, rounded(first.hints), rounded(first.params)});

    const Intent given{input.value(QLatin1String("name")).toString(), input.value(QLatin1String("hints")).toObject(),
                       input.value(QLatin1String("params")).toObject()};
    const QUrl written = Core::IntentUri::toUri(given.name, given.hints, given.params);
    expectEqual("What is written", written, modelWrite(given));
    if (written.isEmpty())
        return 0;
    if (!written.toString().startsWith(QLatin1String("intent://")))
        fail(QStringLiteral("Not an intent URI: ") + written.toString());
    expectEqual("What is read of what was written", read(written), modelRead(written));
    if (isPlain(given.name) && isPlain(given.hints) && isPlain(given.params))
        expectEqual("What is read of a plain intent", read(written),
                    Intent{given.name, rounded(given.hints), rounded(given.params)});
    return 0;
}
