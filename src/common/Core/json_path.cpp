// SPDX-License-Identifier: BSD-3-Clause
#include "json_path.h"

#include <QtCore/QDebug>
#include <QtCore/QJsonArray>
#include <QtCore/QStringView>

#include <algorithm>

namespace Core::JsonPath {

/// Returns a debug stream whose log context is the public function for strings.
static QDebug debug()
{
    return QMessageLogger(__FILE__, __LINE__,
                          "Core::JsonPath::Element Core::JsonPath::nextPathElement(QString&, QString*, int*)")
        .debug();
}

/// The same function for a view. Removing the front of a long string would move the rest of the string.
static Element nextPathElement(QStringView &path, QString *key, int *index)
{
    while (path.startsWith(QLatin1Char('.')))
        path = path.mid(1);
    if (path.isEmpty())
        return End;

    if (path.startsWith(QLatin1Char('['))) {
        const auto bracket = path.indexOf(QLatin1Char(']'));
        if (bracket < 0) {
            debug() << "JSON path error: missing right bracket";
            return End;
        }
        const QString content = path.mid(1, bracket - 1).toString();
        path = path.mid(bracket + 1);
        if (content == QLatin1String("*"))
            return AnyIndex;
        bool ok = false;
        *index = content.toInt(&ok);
        if (!ok) {
            debug() << "JSON path error: could not parse index" << content;
            return End;
        }
        return Index;
    }

    const auto isSeparator = [](QChar c) { return c == QLatin1Char('.') || c == QLatin1Char('['); };
    const auto length = std::find_if(path.cbegin(), path.cend(), isSeparator) - path.cbegin();
    const QStringView text = path.left(length);
    path = path.mid(length);
    if (text == QLatin1String("*"))
        return AnyKey;
    *key = text.toString();
    return Key;
}

Element nextPathElement(QString &path, QString *key, int *index)
{
    QStringView rest = path;
    const Element element = nextPathElement(rest, key, index);
    path.remove(0, path.size() - int(rest.size()));
    return element;
}

namespace {

QString joined(const QString &path, const QString &key)
{
    return path.isEmpty() ? key : path + QLatin1Char('.') + key;
}

QString joined(const QString &path, int index)
{
    return QStringLiteral("%1[%2]").arg(path, QString::number(index));
}

/// Appends each element of \a rests, prefixed with \a path, to \a paths.
void appendJoined(const QString &path, const QStringList &rests, QStringList *paths)
{
    for (const QString &rest : rests)
        paths->append(rest.isEmpty() || rest.startsWith(QLatin1Char('[')) ? path + rest
                                                                          : path + QLatin1Char('.') + rest);
}

QStringList expandFrom(QJsonValue current, QStringView rest)
{
    QString path;
    QString key;
    int index = 0;
    for (;;) {
        switch (nextPathElement(rest, &key, &index)) {
        case Key: {
            const QJsonObject object = current.toObject();
            const auto member = object.find(key);
            if (member == object.end())
                return {};
            current = member.value();
            path = joined(path, key);
            break;
        }
        case Index: {
            const QJsonArray array = current.toArray();
            if (index < 0)
                index += array.size();
            if (index < 0 || index >= array.size())
                return {};
            current = array.at(index);
            path = joined(path, index);
            break;
        }
        case AnyKey: {
            QStringList paths;
            const QJsonObject object = current.toObject();
            for (auto member = object.begin(); member != object.end(); ++member)
                appendJoined(joined(path, member.key()), expandFrom(member.value(), rest), &paths);
            return paths;
        }
        case AnyIndex: {
            QStringList paths;
            const QJsonArray array = current.toArray();
            for (int i = 0; i < array.size(); ++i)
                appendJoined(joined(path, i), expandFrom(array.at(i), rest), &paths);
            return paths;
        }
        case End:
            return {path};
        }
    }
}

} // namespace

QJsonValue value(const QJsonObject &root, const QString &path)
{
    QJsonValue current = root;
    QStringView rest = path;
    QString key;
    int index = 0;
    for (;;) {
        switch (nextPathElement(rest, &key, &index)) {
        case Key: {
            const QJsonValue member = current.toObject().value(key);
            current = member.isUndefined() ? QJsonValue(QJsonValue::Null) : member;
            break;
        }
        case Index: {
            const QJsonArray array = current.toArray();
            current = array.at(index < 0 ? index + array.size() : index);
            break;
        }
        case AnyKey:
        case AnyIndex:
            break;
        case End:
            return current;
        }
    }
}

QStringList expand(const QJsonObject &root, const QString &path)
{
    return expandFrom(root, path);
}

} // namespace Core::JsonPath
