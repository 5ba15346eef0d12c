// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "params.h"
#include "travel.h"

#include <QtCore/QJsonArray>

using Corvane::Error;
using Travel::Effect;
using Travel::Problem;

namespace {

QString nameOf(Effect effect)
{
    switch (effect) {
    case Effect::Changed:
        return QStringLiteral("changed");
    case Effect::Omitted:
        return QStringLiteral("omitted");
    case Effect::Refused:
        return QStringLiteral("refused");
    case Effect::NotInUri:
        return QStringLiteral("notInUri");
    }
    return {};
}

QJsonArray toJson(const QVector<Problem> &problems)
{
    QJsonArray array;
    for (const Problem &problem : problems) {
        QJsonObject object{{QStringLiteral("path"), problem.path},
                           {QStringLiteral("effect"), nameOf(problem.effect)},
                           {QStringLiteral("reason"), problem.reason}};
        if (problem.line > 0)
            object.insert(QStringLiteral("line"), problem.line);
        array.append(object);
    }
    return array;
}

QString toText(const QVector<Problem> &problems, const QString &label)
{
    QString text;
    for (const Problem &problem : problems) {
        const QString line = problem.line > 0 ? QStringLiteral(" (line %1)").arg(problem.line) : QString();
        text += QStringLiteral("%1: %2%3%4\n").arg(Output::strong(problem.path), label, problem.reason, line);
    }
    return text;
}

} // namespace

int checkParams(const Invocation &invocation)
{
    const QString name = invocation.arguments.value(0, QStringLiteral("-"));
    QByteArray text;
    QJsonObject params;
    if (const Error error = readFile(name, &text))
        return Output::fail(error);
    if (const Error error = readObject(text, name, &params))
        return Output::fail(error);

    QVector<Problem> problems = Travel::problemsOfText(text) + Travel::problemsOfValues(params)
        + Travel::problemsOfFiles(params, invocation.values("read-files") + invocation.values("write-files"));
    QVector<Problem> notes;
    (invocation.has("uri") ? problems : notes) += Travel::problemsOfUri(params);

    const QJsonObject json{{QStringLiteral("problems"), toJson(problems)}, {QStringLiteral("notes"), toJson(notes)}};
    const QString lines = toText(problems, {}) + toText(notes, QStringLiteral("not in a URI: "));
    if (problems.isEmpty()) {
        Output::printLine(lines + QStringLiteral("All params arrive unchanged."), json);
        return Error::NoError;
    }
    Output::printText(lines);
    return Output::fail(
        {Error::InvalidArgs,
         QStringLiteral("%1: Not all params arrive unchanged; problems: %2").arg(name).arg(problems.size())},
        json);
}
