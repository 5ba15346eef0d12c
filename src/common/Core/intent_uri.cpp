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

/// Returns a null string if the value cannot be written.
QString valueToString(const QJsonValue &value)
{
    switch (faultOf(value)) {
    case ValueFault::Semicolon:
        qWarning() << "Cannot encode strings with semicolons";
        return {};
    case ValueFault::Container:
        qWarning() << "Intent URI conversion does not support arrays or maps";
        return {};
    case ValueFault::Null:
        return {};
    case ValueFault::None:
        break;
    }
    if (value.isBool())
        return value.toBool() ? QStringLiteral("B.true") : QStringLiteral("B.false");
    return value.isDouble() ? QStringLiteral("d.%1").arg(value.toDouble()) : QLatin1String("S.") + value.toString();
}

bool hasType(const QString &text)
{
    return text.size() >= 2 && text[1] == QLatin1Char('.');
}

/// Returns null if the text is not a value.
QJsonValue decoded(const QString &text)
{
    if (!hasType(text))
        return {};
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
        return {};
    }
}

/// Does the same, and logs a warning for an invalid text.
QJsonValue valueFromString(const QString &text)
{
    const QJsonValue value = decoded(text);
    if (!hasType(text))
        qWarning() << "Intent URI with invalid value";
    else if (value.isNull())
        qWarning() << "Unknown intent value type:" << text[0];
    return value;
}

/// \param decode converts the text of a value; returns null if the text is not a value
Intent parse(const QUrl &uri, QJsonValue (*decode)(const QString &text))
{
    using Fault = Intent::Fault;
    const auto failed = [](Fault fault, const QString &part = {}) { return Intent{fault, {}, {}, {}, part}; };

    if (!uri.isValid())
        return failed(Fault::InvalidUrl);
    if (uri.scheme() != Scheme)
        return failed(Fault::WrongScheme);
    const QString fragment = uri.fragment();
    if (!fragment.startsWith(FragmentHead) || !fragment.endsWith(FragmentTail))
        return failed(Fault::WrongFragment);

    ObjectBuilder hints;
    const auto items = QUrlQuery(uri).queryItems();
    for (const auto &[key, text] : items)
        hints.insert(key, decode(text));

    ObjectBuilder params;
    const QVector<QStringRef> parts = fragment.midRef(FragmentHead.size()).split(QLatin1Char(';'));
    for (int i = 1; i < parts.size() && parts[i] != FragmentTail; ++i) {
        const int equals = parts[i].indexOf(QLatin1Char('='));
        const QJsonValue value = equals > 0 ? decode(parts[i].mid(equals + 1).toString()) : QJsonValue();
        if (value.isNull())
            return failed(Fault::InvalidParam, parts[i].toString());
        params.insert(parts[i].left(equals).toString(), value);
    }
    return {Fault::None, parts.first().toString(), hints.take(), params.take(), {}};
}

} // namespace

ValueFault faultOf(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
    case QJsonValue::Double:
        break;
    case QJsonValue::String:
        return value.toString().contains(QLatin1Char(';')) ? ValueFault::Semicolon : ValueFault::None;
    case QJsonValue::Array:
    case QJsonValue::Object:
        return ValueFault::Container;
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        return ValueFault::Null;
    }
    return ValueFault::None;
}

Intent read(const QUrl &uri)
{
    return parse(uri, decoded);
}

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
    uri.setAuthority(QLatin1String(""), QUrl::TolerantMode); // an empty authority: "intent://"
    return uri;
}

std::tuple<QString, QJsonObject, QJsonObject> fromUri(const QUrl &uri)
{
    const Intent intent = parse(uri, valueFromString);
    switch (intent.fault) {
    case Intent::Fault::InvalidUrl:
        qWarning() << "Invalid intent URI" << uri.errorString();
        break;
    case Intent::Fault::WrongScheme:
    case Intent::Fault::WrongFragment:
        qWarning() << "Not an intent URI:" << uri;
        break;
    case Intent::Fault::InvalidParam:
        qWarning() << "Invalid intent URI:" << uri;
        break;
    case Intent::Fault::None:
        break;
    }
    return {intent.name, intent.hints, intent.params};
}

} // namespace Core::IntentUri
