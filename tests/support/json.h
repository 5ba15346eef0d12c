// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

/// Returns the JSON value of the text, which may be an object, an array or a single value.
inline QJsonValue fromJson(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson('[' + text + ']', &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("%s: %s", text.constData(), qUtf8Printable(error.errorString()));
    return document.array().first();
}

/// Returns the compact text of the JSON value.
inline QString toJson(const QJsonValue &value)
{
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text.mid(1, text.size() - 2));
}
