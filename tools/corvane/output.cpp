// SPDX-License-Identifier: BSD-3-Clause
#include "output.h"

#include "table.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace Output {

namespace {

bool isJson = false;

void write(std::FILE *stream, const QByteArray &text)
{
    const auto size = std::size_t(text.size());
    if (std::fwrite(text.constData(), 1, size, stream) == size && std::fflush(stream) == 0)
        return;
    if (stream == stdout) { // a script must not mistake a partial output for the result
        std::perror("corvane: standard output");
        std::exit(Corvane::Error::Failed);
    }
}

bool isTerminal(int descriptor)
{
    return !isJson && ::isatty(descriptor) != 0;
}

bool hasColours(int descriptor)
{
    return isTerminal(descriptor) && qEnvironmentVariableIsEmpty("NO_COLOR") && qgetenv("TERM") != "dumb";
}

QString styled(const QString &text, const char *style, int descriptor)
{
    return hasColours(descriptor) ? QStringLiteral("\033[%1m%2\033[0m").arg(QLatin1String(style), text) : text;
}

int fail(int code, const QString &name, const QString &message, QJsonObject more, const QString &hint = {})
{
    if (isJson) {
        more.insert(QStringLiteral("error"),
                    QJsonObject{{QStringLiteral("code"), code},
                                {QStringLiteral("name"), name},
                                {QStringLiteral("message"), message}});
        printObject(more);
    } else {
        printNote(styled(QStringLiteral("corvane:"), "1;31", STDERR_FILENO) + QLatin1Char(' ') + message);
        if (!hint.isEmpty())
            printNote(hint);
    }
    return code;
}

} // namespace

void setJson(bool json)
{
    isJson = json;
}

void printObject(const QJsonObject &object)
{
    const bool isIndented = isTerminal(STDOUT_FILENO);
    const QByteArray text = QJsonDocument(object).toJson(isIndented ? QJsonDocument::Indented : QJsonDocument::Compact);
    write(stdout, isIndented ? text : text + '\n');
}

void printLine(const QString &text, const QJsonObject &object)
{
    if (isJson)
        printObject(object);
    else
        write(stdout, text.toUtf8() + '\n');
}

void printText(const QString &lines)
{
    if (!isJson)
        write(stdout, lines.toUtf8());
}

void printRaw(const QString &text)
{
    write(stdout, text.toUtf8());
}

void printNote(const QString &text)
{
    write(stderr, text.toUtf8() + '\n');
}

void forwardErrors(const QByteArray &text)
{
    write(stderr, text);
}

int fail(const Corvane::Error &error, const QJsonObject &more)
{
    return fail(error.code(), nameOf(error.code()), error.message(), more);
}

int failUsage(const QString &message, const QString &command)
{
    const QString program = command.isEmpty() ? QStringLiteral("corvane") : QStringLiteral("corvane ") + command;
    return fail(UsageError, QStringLiteral("Usage"), message, {}, QStringLiteral("Try \"%1 --help\".").arg(program));
}

QString strong(const QString &text)
{
    return styled(text, "1", STDOUT_FILENO);
}

QString jsonText(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

} // namespace Output
