// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/error.h>

#include <QtCore/QDebug>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QString>

/// Prints results and failures in UTF-8, as text or as JSON. JSON has no colours and no line breaks.
namespace Output {

void setJson(bool json);

/// Prints an object. As text, it is indented on a terminal.
void printObject(const QJsonObject &object);
/// Prints \a text, or \a object with --json, as one line.
void printLine(const QString &text, const QJsonObject &object);
/// Prints lines, but not with --json.
void printText(const QString &lines);
/// Prints a text that is the same with and without --json.
void printRaw(const QString &text);
/// Prints a line to standard error.
void printNote(const QString &text);
/// Writes the output of another program to standard error.
void forwardErrors(const QByteArray &text);

/// Prints a failure, with --json as the member "error" of \a more. Returns the exit code.
int fail(const Corvane::Error &error, const QJsonObject &more = {});
int failUsage(const QString &message, const QString &command);

/// Returns the text in bold type if standard output is a terminal that may have colours.
QString strong(const QString &text);

/// Returns the value as JSON, in one line.
QString jsonText(const QJsonValue &value);

/// Returns the enumerator as the library prints it, without its scope: "HandlerNotFound", "MemoryLevel(150)".
template<typename Enumeration>
QString nameOf(Enumeration value)
{
    QString text;
    QDebug(&text).nospace() << value;
    return text.mid(text.lastIndexOf(QLatin1Char(':')) + 1);
}

} // namespace Output
