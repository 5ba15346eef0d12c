// SPDX-License-Identifier: BSD-3-Clause
#include "travel.h"

#include "output.h"

#include <Corvane/intent_uri.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QUrl>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace Travel {

namespace {

constexpr int MaxContainers = 63;

QString pathOf(const QString &parent, const QString &key)
{
    const bool isPlain = !key.isEmpty() && key != QLatin1String("*") && !key.contains(QLatin1Char('.'))
        && !key.contains(QLatin1Char('['));
    if (!isPlain)
        return QStringLiteral("%1[%2]").arg(parent, Output::jsonText(key));
    return parent.isEmpty() ? key : parent + QLatin1Char('.') + key;
}

QString pathOf(const QString &parent, int index)
{
    return QStringLiteral("%1[%2]").arg(parent, QString::number(index));
}

bool hasLoneSurrogate(const QString &text)
{
    for (int i = 0; i < text.size(); ++i) {
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;
        else if (text.at(i).isSurrogate())
            return true;
    }
    return false;
}

/// Visits all values that a message contains, and counts the containers around them.
class Walk
{
public:
    /// \param level the number of containers around the object
    void visitObject(const QJsonObject &object, const QString &path, bool isInMixedArray, int level)
    {
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString memberPath = pathOf(path, member.key());
            // The object, its entry and the variant of the value are containers.
            if (fits(level + 3, memberPath) && visit(member.value(), memberPath, isInMixedArray, level + 3))
                visitText(member.key(), memberPath, QStringLiteral("the key"));
        }
    }

    QVector<Problem> problems;

private:
    /// Returns whether the value is in the message.
    bool visit(const QJsonValue &value, const QString &path, bool isInMixedArray, int level)
    {
        switch (value.type()) {
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            return omit(path, "a null is omitted");
        case QJsonValue::String:
            visitText(value.toString(), path, QStringLiteral("the text"));
            return true;
        case QJsonValue::Array:
            return visitArray(value.toArray(), path, isInMixedArray, level);
        case QJsonValue::Object:
            if (!fits(level + 1, path))
                return false;
            visitObject(value.toObject(), path, isInMixedArray, level);
            return true;
        default:
            return true;
        }
    }

    bool visitArray(const QJsonArray &array, const QString &path, bool isInMixedArray, int level)
    {
        const auto hasFirstType = [&array](const QJsonValue &element) { return element.type() == array[0].type(); };
        const bool isMixed = isInMixedArray || !std::all_of(array.begin(), array.end(), hasFirstType);
        const QJsonValue::Type type = array.isEmpty() || isMixed ? QJsonValue::Undefined : array[0].type();
        if (type == QJsonValue::Array)
            return omit(path, "an array of arrays is omitted");
        if (type == QJsonValue::Null)
            return omit(path, "an array of nulls is omitted");
        if (!fits(level + (type == QJsonValue::Object ? 2 : 1), path))
            return false;
        for (int i = 0; i < array.size(); ++i) {
            const QString elementPath = pathOf(path, i);
            if (type == QJsonValue::Object)
                visitObject(array[i].toObject(), elementPath, false, level + 1);
            else if (!isMixed)
                visit(array[i], elementPath, false, level + 1);
            else if (fits(level + 2, elementPath)) // the array and the variant of the element
                visit(array[i], elementPath, true, level + 2);
        }
        return true;
    }

    void visitText(const QString &text, const QString &path, const QString &what)
    {
        if (text.contains(QChar(QChar::Null)))
            problems.append({path, Effect::Refused, what + QStringLiteral(" contains U+0000")});
        if (hasLoneSurrogate(text))
            problems.append({path, Effect::Changed, what + QStringLiteral(" contains a lone surrogate")});
    }

    bool fits(int containers, const QString &path)
    {
        if (containers <= MaxContainers)
            return true;
        problems.append({path, Effect::Refused,
                         QStringLiteral("the value needs more than %1 nested containers").arg(MaxContainers)});
        return false;
    }

    bool omit(const QString &path, const char *reason)
    {
        problems.append({path, Effect::Omitted, QString::fromLatin1(reason)});
        return false;
    }
};

/// Appends the files at a JSON path to \a files, each with its path.
void findFiles(const QJsonValue &value, const QString &path, QString rest, QStringList *files)
{
    while (rest.startsWith(QLatin1Char('.')))
        rest.remove(0, 1);
    if (rest.isEmpty()) {
        const QString text = value.toString();
        if (!(text.contains(QLatin1Char(':')) ? QUrl(text).toLocalFile() : text).isEmpty())
            files->append(path);
        return;
    }
    if (rest.startsWith(QLatin1Char('['))) {
        const int end = rest.indexOf(QLatin1Char(']'));
        const QString index = rest.mid(1, end - 1);
        const QJsonArray array = value.toArray();
        for (int i = 0; end > 0 && i < array.size(); ++i) {
            bool isNumber = false;
            const int number = index.toInt(&isNumber);
            if (index == QLatin1String("*") || (isNumber && (number == i || number + array.size() == i)))
                findFiles(array[i], pathOf(path, i), rest.mid(end + 1), files);
        }
        return;
    }
    const auto isEnd = [](QChar c) { return c == QLatin1Char('.') || c == QLatin1Char('['); };
    const int length = int(std::find_if(rest.cbegin(), rest.cend(), isEnd) - rest.cbegin());
    const QString key = rest.left(length);
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
        if (key == QLatin1String("*") || key == member.key())
            findFiles(member.value(), pathOf(path, member.key()), rest.mid(length), files);
    }
}

/// Reads valid JSON again, because QJsonDocument keeps neither repeated keys nor the digits of numbers.
class Scanner
{
public:
    explicit Scanner(const QByteArray &text) : m_text(text) { }

    void readValue(const QString &path)
    {
        skipSpace();
        switch (next()) {
        case '{':
            return readObject(path);
        case '[':
            return readArray(path);
        case '"':
            readString();
            return;
        default:
            readWord(path);
        }
    }

    QVector<Problem> problems;

private:
    char next() const { return m_at < m_text.size() ? m_text.at(m_at) : '\0'; }

    void skipSpace()
    {
        for (; std::strchr(" \t\r\n", next()) && next() != '\0'; ++m_at)
            m_line += next() == '\n';
    }

    /// Returns whether the next character is the given one, and skips it.
    bool skip(char c)
    {
        skipSpace();
        if (next() != c)
            return false;
        ++m_at;
        return true;
    }

    QString readString()
    {
        const int begin = m_at;
        for (++m_at; next() != '"'; ++m_at)
            m_at += next() == '\\';
        ++m_at;
        const QByteArray array = '[' + m_text.mid(begin, m_at - begin) + ']';
        return QJsonDocument::fromJson(array).array().first().toString();
    }

    void readObject(const QString &path)
    {
        QStringList keys;
        skip('{');
        skipSpace();
        while (!skip('}')) {
            const int line = m_line;
            const QString key = readString();
            const QString memberPath = pathOf(path, key);
            if (keys.contains(key))
                problems.append({memberPath, Effect::Changed,
                                 QStringLiteral("the key is repeated, and only its last value arrives"), line});
            keys.append(key);
            skip(':');
            readValue(memberPath);
            skip(',');
            skipSpace();
        }
    }

    void readArray(const QString &path)
    {
        skip('[');
        for (int i = 0; !skip(']'); ++i) {
            readValue(pathOf(path, i));
            skip(',');
        }
    }

    void readWord(const QString &path)
    {
        const int begin = m_at;
        while (std::isalnum(static_cast<unsigned char>(next())) || std::strchr("+-.", next())) {
            if (next() == '\0')
                break;
            ++m_at;
        }
        const QByteArray word = m_text.mid(begin, m_at - begin);
        const bool isInteger =
            std::all_of(word.begin(), word.end(), [](char c) { return c == '-' || std::isdigit(c); });
        const QByteArray sent = QByteArray::number(word.toDouble(), 'f', 0);
        if (isInteger && sent != word && word != "-0")
            problems.append(
                {path, Effect::Changed,
                 QStringLiteral("the integer needs more than 53 bits, and %1 arrives").arg(QString::fromLatin1(sent)),
                 m_line});
    }

    const QByteArray &m_text;
    int m_at = 0;
    int m_line = 1;
};

} // namespace

QVector<Problem> problemsOfValues(const QJsonObject &params)
{
    Walk walk;
    walk.visitObject(params, {}, false, 0);
    return walk.problems;
}

QVector<Problem> problemsOfFiles(const QJsonObject &params, const QStringList &paths)
{
    QStringList files;
    for (const QString &path : paths)
        findFiles(params, {}, path, &files);
    QVector<Problem> problems;
    for (int i = CORVANE_MAX_DESCRIPTORS; i < files.size(); ++i)
        problems.append({files.at(i), Effect::Refused,
                         QStringLiteral("this is file %1, and a message can carry %2")
                             .arg(QString::number(i + 1), QString::number(CORVANE_MAX_DESCRIPTORS))});
    return problems;
}

QVector<Problem> problemsOfUri(const QJsonObject &params)
{
    QVector<Problem> problems;
    for (auto member = params.begin(); member != params.end(); ++member) {
        const Corvane::Error error =
            Corvane::IntentUri::check(QStringLiteral("Intent"), {}, {{member.key(), member.value()}});
        if (error)
            problems.append({pathOf({}, member.key()), Effect::NotInUri, error.message()});
    }
    return problems;
}

QVector<Problem> problemsOfText(const QByteArray &text)
{
    Scanner scanner(text);
    scanner.readValue({});
    return scanner.problems;
}

} // namespace Travel
