// SPDX-License-Identifier: BSD-3-Clause
#include "params.h"

#include "command_line.h"

#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <cstdio>

using Corvane::Error;

namespace {

/// Adds KEY=VALUE or KEY:=JSON to the object. The parser has checked the form.
Error add(const QString &pair, QJsonObject *object)
{
    const int equals = pair.indexOf(QLatin1Char('='));
    const QString text = pair.mid(equals + 1);
    if (pair.at(equals - 1) != QLatin1Char(':')) {
        object->insert(pair.left(equals), text);
        return {};
    }
    QJsonParseError problem{};
    const QJsonArray array = QJsonDocument::fromJson('[' + text.toUtf8() + ']', &problem).array();
    if (problem.error != QJsonParseError::NoError || array.size() != 1)
        return {Error::InvalidArgs, QStringLiteral("\"%1\" is not JSON").arg(text)};
    object->insert(pair.left(equals - 1), array.first());
    return {};
}

Error addAll(const QStringList &pairs, QJsonObject *object)
{
    for (const QString &pair : pairs) {
        if (const Error error = add(pair, object))
            return error;
    }
    return {};
}

} // namespace

Error readFile(const QString &name, QByteArray *text)
{
    QFile file(name);
    const bool isOpen =
        name == QLatin1String("-") ? file.open(stdin, QIODevice::ReadOnly) : file.open(QIODevice::ReadOnly);
    if (isOpen)
        *text = file.readAll();
    if (!isOpen || file.error() != QFileDevice::NoError)
        return {Error::InvalidArgs, QStringLiteral("%1: %2").arg(name, file.errorString())};
    return {};
}

Error readObject(const QByteArray &text, const QString &name, QJsonObject *object)
{
    QJsonParseError problem{};
    const QJsonDocument document = QJsonDocument::fromJson(text, &problem);
    if (problem.error != QJsonParseError::NoError)
        return {Error::InvalidArgs,
                QStringLiteral("%1:%2: invalid JSON: %3")
                    .arg(name, QString::number(text.left(problem.offset).count('\n') + 1), problem.errorString())};
    if (!document.isObject())
        return {Error::InvalidArgs, QStringLiteral("%1: the JSON is not an object").arg(name)};
    *object = document.object();
    return {};
}

Error readIntentValues(const Invocation &invocation, IntentValues *values)
{
    if (invocation.has("params")) {
        const QString name = invocation.value("params");
        QByteArray text;
        if (const Error error = readFile(name, &text))
            return error;
        if (const Error error = readObject(text, name, &values->params))
            return error;
    }
    if (const Error error = addAll(invocation.arguments.mid(1), &values->params))
        return error;
    return addAll(invocation.values("hint"), &values->hints);
}
