// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/error.h>

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

struct Invocation;

/// The params and hints on the command line.
struct IntentValues
{
    QJsonObject hints;
    QJsonObject params;
};

/// Reads --params, --hint and the arguments after the intent name.
Corvane::Error readIntentValues(const Invocation &invocation, IntentValues *values);

/// Reads a file, or standard input if the name is "-".
Corvane::Error readFile(const QString &name, QByteArray *text);

/// Converts the text of a JSON object. The message of the error begins with \a name and the line.
Corvane::Error readObject(const QByteArray &text, const QString &name, QJsonObject *object);
