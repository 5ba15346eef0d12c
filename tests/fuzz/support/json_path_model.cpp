// SPDX-License-Identifier: BSD-3-Clause
#include "json_path_model.h"

#include <QtCore/QJsonArray>

#include <algorithm>

namespace Fuzz {

namespace {

struct Step
{
    bool isIndex;
    bool isWildcard;
    QString key;
    int index;
};

/// Parses a path. A dot separates parts. A part is a key and then indices in brackets. A dot in brackets has no
/// meaning.
QVector<Step> steps(const QString &path)
{
    QVector<Step> result;
    for (int at = 0; at < path.size();) {
        if (path[at] == '.') {
            ++at;
            continue;
        }
        const bool isIndex = path[at] == '[';
        int end = isIndex ? path.indexOf(']', at) : at;
        if (end < 0)
            break;
        while (!isIndex && end < path.size() && path[end] != '.' && path[end] != '[')
            ++end;
        const QString text = path.mid(at + int(isIndex), end - at - int(isIndex));
        const bool isWildcard = text == "*";
        bool isNumber = false;
        const int index = text.toInt(&isNumber);
        if (isIndex && !isWildcard && !isNumber)
            break;
        result.append({isIndex, isWildcard, text, index});
        at = end + int(isIndex);
    }
    return result;
}

} // namespace

bool hasAmbiguousKeys(const QJsonValue &value)
{
    const QJsonArray array = value.toArray();
    if (std::any_of(array.begin(), array.end(), [](const QJsonValue &element) { return hasAmbiguousKeys(element); }))
        return true;
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString key = member.key();
        if (key.isEmpty() || key == "*" || key.contains('.') || key.contains('[') || hasAmbiguousKeys(member.value()))
            return true;
    }
    return false;
}

QVector<QPair<QString, QJsonValue>> matches(const QJsonObject &root, const QString &path)
{
    struct Match
    {
        QStringList parts; ///< The parts of its path; each wildcard ends a part.
        QJsonValue value;
    };
    QVector<Match> current{{{QString()}, root}};
    const auto walk = steps(path);
    for (const Step &step : walk) {
        QVector<Match> next;
        const auto add = [&step, &next](QStringList parts, const QString &text, const QJsonValue &value) {
            parts.last() += text;
            if (step.isWildcard)
                parts.append(QString());
            next.append({parts, value});
        };
        for (const auto &[parts, value] : qAsConst(current)) {
            if (step.isIndex) {
                const QJsonArray array = value.toArray();
                const int wanted = step.index < 0 ? step.index + array.size() : step.index;
                for (int i = 0; i < array.size(); ++i) {
                    if (step.isWildcard || i == wanted)
                        add(parts, QString("[%1]").arg(i), array.at(i));
                }
            } else {
                const QJsonObject object = value.toObject();
                const QStringList keys = object.keys();
                const QString dot = parts.last().isEmpty() ? QString() : ".";
                for (const QString &key : keys) {
                    if (step.isWildcard || key == step.key)
                        add(parts, dot + key, object[key]);
                }
            }
        }
        current = next;
    }

    QVector<QPair<QString, QJsonValue>> result;
    for (const auto &[parts, value] : qAsConst(current)) {
        QString joined = parts.last();
        for (auto part = parts.rbegin() + 1; part != parts.rend(); ++part) {
            const bool needsDot = !joined.isEmpty() && !joined.startsWith('[');
            joined.prepend(needsDot ? *part + '.' : *part);
        }
        result.append({joined, value});
    }
    return result;
}

QJsonValue valueAt(const QJsonObject &root, const QString &path)
{
    QJsonValue current = root;
    const auto walk = steps(path);
    for (const Step &step : walk) {
        if (step.isWildcard)
            continue;
        if (step.isIndex) {
            const QJsonArray array = current.toArray();
            current = array.at(step.index < 0 ? step.index + array.size() : step.index);
        } else {
            const QJsonValue member = current.toObject().value(step.key);
            current = member.isUndefined() ? QJsonValue(QJsonValue::Null) : member;
        }
    }
    return current;
}

} // namespace Fuzz
