// SPDX-License-Identifier: BSD-3-Clause
#include "intent_uri.h"

#include "object_builder.h"

#include <QtCore/QDebug>
#include <QtCore/QStringList>
#include <QtCore/QUrlQuery>

namespace Core::IntentUri {

namespace {

const QString Scheme = QStringLiteral("intent");
const QString FragmentHead = QStringLiteral("Intent;name=");
const QString FragmentTail = QStringLiteral("end");

/// A null string if the value cannot be written.
QString valueToString(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("B.true") : QStringLiteral("B.false");
    case QJsonValue::Double:
        return QStringLiteral("d.%1").arg(value.toDouble());
    case QJsonValue::String: {
        const QString text = value.toString();
        if (text.contains(QLatin1Char(';'))) {
            qWarning() << "Cannot encode strings with semicolons";
            return {};
        }
        return QLatin1String("S.") + text;
    }
    case QJsonValue::Array:
    case QJsonValue::Object:
        qWarning() << "Intent URI conversion does not support arrays or maps";
        return {};
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    return {};
}

/// Null if the text is not a value.
QJsonValue valueFromString(const QString &text)
{
    if (text.size() < 2 || text[1] != QLatin1Char('.')) {
        qWarning() << "Intent URI with invalid value";
        return {};
    }
    const QString rest = text.mid(2);
    switch (text[0].unicode()) {
    case 'd':
        return rest.toDouble();
    case 'B':
        return rest == QLatin1String("true");
    case 'S':
        return rest;
    case 'i':
        return rest.toInt();
    default:
        qWarning() << "Unknown intent value type:" << text[0];
        return {};
    }
}

} // namespace

QUrl toUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    if (intentName.isEmpty())
        return {};

    QUrlQuery query;
    for (auto hint = hints.begin(); hint != hints.end(); ++hint) {
        const QString value = valueToString(hint.value());
        if (value.isNull())
            return {};
        query.addQueryItem(hint.key(), value);
    }

    QString fragment = FragmentHead + intentName;
    for (auto param = params.begin(); param != params.end(); ++param) {
        const QString value = valueToString(param.value());
        if (value.isNull())
            return {};
        fragment += QLatin1Char(';') + param.key() + QLatin1Char('=') + value;
    }
    fragment += QLatin1Char(';') + FragmentTail;

    QUrl uri;
    uri.setScheme(Scheme);
    uri.setQuery(query);
    uri.setFragment(fragment, QUrl::TolerantMode);
    uri.setAuthority(QLatin1String(""), QUrl::TolerantMode); // present, though empty: "intent://"
    return uri;
}

std::tuple<QString, QJsonObject, QJsonObject> fromUri(const QUrl &uri)
{
    if (!uri.isValid()) {
        qWarning() << "Invalid intent URI" << uri.errorString();
        return {};
    }

    const QString fragment = uri.fragment();
    if (uri.scheme() != Scheme || !fragment.startsWith(FragmentHead) || !fragment.endsWith(FragmentTail)) {
        qWarning() << "Not an intent URI:" << uri;
        return {};
    }

    ObjectBuilder hints;
    const auto items = QUrlQuery(uri).queryItems();
    for (const auto &[key, text] : items)
        hints.insert(key, valueFromString(text));

    ObjectBuilder params;
    const QVector<QStringRef> parts = fragment.midRef(FragmentHead.size()).split(QLatin1Char(';'));
    for (int i = 1; i < parts.size() && parts[i] != FragmentTail; ++i) {
        const int equals = parts[i].indexOf(QLatin1Char('='));
        const QJsonValue value = equals > 0 ? valueFromString(parts[i].mid(equals + 1).toString()) : QJsonValue();
        if (value.isNull()) {
            qWarning() << "Invalid intent URI:" << uri;
            return {};
        }
        params.insert(parts[i].left(equals).toString(), value);
    }
    return {parts.first().toString(), hints.take(), params.take()};
}

} // namespace Core::IntentUri
