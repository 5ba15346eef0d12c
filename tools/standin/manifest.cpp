// SPDX-License-Identifier: BSD-3-Clause
#include "manifest.h"

#include <Corvane/schedule.h>
#include <DBus/keys.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QHash>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <limits>

namespace Keys = Corvane::Keys;

namespace {

// The limits of a process's niceness
const int LowestNiceness = -20;
const int HighestNiceness = 19;

QString described(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Undefined:
        return QStringLiteral("nothing");
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Double:
        return QStringLiteral("the number %1").arg(value.toDouble());
    case QJsonValue::String:
        return QStringLiteral("\"%1\"").arg(value.toString());
    case QJsonValue::Array:
        return value.toArray().isEmpty() ? QStringLiteral("an empty list") : QStringLiteral("a list");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    }
    return {};
}

/// Reads one file and collects its errors. Accepts the same files as data/manifest/corvane-manifest.schema.json, except
/// for rules that a JSON Schema cannot express.
class Reader
{
public:
    Reader(const QString &file, QStringList *errors) : m_file(file), m_errors(errors) { }

    Manifest read()
    {
        QFile file(m_file);
        if (!QFileInfo(m_file).isFile() || !file.open(QIODevice::ReadOnly)) { // opening a pipe could block
            error(QStringLiteral("expected a file that can be read"));
            return {};
        }
        const QByteArray text = file.readAll();
        QJsonParseError parseError;
        const QJsonDocument document = QJsonDocument::fromJson(text, &parseError);
        if (parseError.error != QJsonParseError::NoError) {
            const int line = 1 + text.left(parseError.offset).count('\n');
            error(QStringLiteral("line %1: expected JSON: %2").arg(line).arg(parseError.errorString()));
            return {};
        }
        if (!document.isObject()) {
            error(QStringLiteral("line 1: expected an object, found a list"));
            return {};
        }
        return readObject(document.object());
    }

private:
    Manifest readObject(const QJsonObject &object)
    {
        const QString schema = QStringLiteral("$schema"); // for editors
        knownKeys(QString(), object,
                  {schema, QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("command"),
                   QStringLiteral("intents"), QStringLiteral("tasks")});
        Manifest manifest;
        manifest.file = m_file;
        if (object.contains(schema))
            readText(schema, object.value(schema));
        manifest.id = readId(object.value(QLatin1String("id")));
        manifest.name = manifest.id;
        if (object.contains(QLatin1String("name")))
            manifest.name = readText(QStringLiteral("name"), object.value(QLatin1String("name")));
        manifest.command = readCommand(QStringLiteral("command"), object.value(QLatin1String("command")));
        if (object.contains(QLatin1String("intents")))
            manifest.intents = readList(QStringLiteral("intents"), object.value(QLatin1String("intents")));
        if (object.contains(QLatin1String("tasks")))
            manifest.tasks = readTasks(object.value(QLatin1String("tasks")));
        return manifest;
    }

    QVector<TaskManifest> readTasks(const QJsonValue &value)
    {
        static const QRegularExpression idPattern(QStringLiteral("\\A[A-Za-z0-9_-]{1,100}\\z"));
        if (!value.isArray())
            mismatch(QStringLiteral("tasks"), QStringLiteral("a list of objects"), value);
        QVector<TaskManifest> tasks;
        QStringList ids;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            const QString key = QStringLiteral("tasks[%1]").arg(i);
            if (!array.at(i).isObject()) {
                mismatch(key, QStringLiteral("an object"), array.at(i));
                continue;
            }
            const QJsonObject object = array.at(i).toObject();
            knownKeys(key, object, {QStringLiteral("id"), QStringLiteral("command"), QStringLiteral("properties")});

            TaskManifest task;
            const QJsonValue id = object.value(QLatin1String("id"));
            task.id = id.toString();
            if (!idPattern.match(task.id).hasMatch())
                mismatch(key + QStringLiteral(".id"), QStringLiteral("at most 100 of the characters A-Z a-z 0-9 _ -"),
                         id);
            else if (ids.contains(task.id))
                mismatch(key + QStringLiteral(".id"), QStringLiteral("one that is not taken"), id);
            ids.append(task.id);
            task.command = readCommand(key + QStringLiteral(".command"), object.value(QLatin1String("command")));
            if (object.contains(QLatin1String("properties")))
                task.properties =
                    readProperties(key + QStringLiteral(".properties"), object.value(QLatin1String("properties")));
            tasks.append(task);
        }
        return tasks;
    }

    /// Returns the properties with the types of Corvane::Task.
    QVariantMap readProperties(const QString &path, const QJsonValue &value)
    {
        if (!value.isObject())
            mismatch(path, QStringLiteral("an object"), value);
        const QJsonObject object = value.toObject();
        QVariantMap properties;
        const QStringList keys = knownKeys(path, object,
                                           {Keys::Autostart, Keys::CreateIpcSocket, Keys::Interval, Keys::Priority,
                                            Keys::RunningTime, Keys::Schedule, Keys::StartDelay, Keys::StartTime});
        for (const QString &key : keys)
            properties.insert(key, readProperty(member(path, key), key, object.value(key)));
        return properties;
    }

    QVariant readProperty(const QString &path, const QString &key, const QJsonValue &value)
    {
        if (key == Keys::Autostart || key == Keys::CreateIpcSocket) {
            if (!value.isBool())
                mismatch(path, QStringLiteral("true or false"), value);
            return value.toBool();
        }
        if (key == Keys::StartTime)
            return readDate(path, value);
        if (key == Keys::Schedule)
            return readSchedule(path, value);
        if (key == Keys::Priority)
            return readInteger(path, value, LowestNiceness, HighestNiceness);
        return readInteger(path, value, 0); // seconds
    }

    QVariantMap readSchedule(const QString &path, const QJsonValue &value)
    {
        if (!value.isObject())
            mismatch(path, QStringLiteral("an object"), value);
        const QJsonObject object = value.toObject();
        QVariantMap map;
        const QStringList keys = knownKeys(
            path, object, {Keys::StartDate, Keys::EndDate, Keys::Months, Keys::WeekDays, Keys::Hours, Keys::Minutes});
        for (const QString &key : keys) {
            const bool isDate = key == Keys::StartDate || key == Keys::EndDate;
            const QVariant entry = isDate ? readDate(member(path, key), object.value(key))
                                          : readIntegers(member(path, key), object.value(key));
            if (entry.isValid())
                map.insert(key, entry);
        }
        const QStringList problems = Corvane::Schedule(map).problems();
        for (const QString &problem : problems)
            error(QStringLiteral("\"%1\": %2").arg(path, problem));
        return map;
    }

    /// Returns an invalid variant after an error.
    QVariant readDate(const QString &path, const QJsonValue &value)
    {
        static const QRegularExpression pattern(
            QStringLiteral("\\A[0-9]{4}-[0-9]{2}-[0-9]{2}"
                           "(T([01][0-9]|2[0-3]):[0-9]{2}(:[0-9]{2}(\\.[0-9]{1,3})?)?(Z|[+-][0-9]{2}:[0-9]{2})?)?\\z"));
        const QString text = value.toString();
        if (pattern.match(text).hasMatch() && QDateTime::fromString(text, Qt::ISODate).isValid())
            return text;
        mismatch(path, QStringLiteral("a date such as \"2030-07-01\" or \"2030-07-01T08:00:00+02:00\""), value);
        return {};
    }

    /// Returns an invalid variant after an error.
    QVariant readIntegers(const QString &path, const QJsonValue &value)
    {
        if (!value.isArray()) {
            mismatch(path, QStringLiteral("a list of integers"), value);
            return {};
        }
        QList<int> list;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i) {
            const int none = std::numeric_limits<int>::min();
            const int number = array.at(i).toInt(none);
            if (number == none) {
                mismatch(QStringLiteral("%1[%2]").arg(path).arg(i), QStringLiteral("an integer"), array.at(i));
                return {};
            }
            list.append(number);
        }
        return QVariant::fromValue(list);
    }

    /// Returns an invalid variant after an error. \a least is not the smallest integer.
    QVariant readInteger(const QString &path, const QJsonValue &value, int least,
                         int greatest = std::numeric_limits<int>::max())
    {
        const int number = value.toInt(least - 1);
        if (number >= least && number <= greatest)
            return number;
        mismatch(path, QStringLiteral("an integer from %1 to %2").arg(least).arg(greatest), value);
        return {};
    }

    /// Returns the keys of the object that are in \a keys. The other keys are errors.
    QStringList knownKeys(const QString &path, const QJsonObject &object, const QStringList &keys)
    {
        QStringList known;
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (keys.contains(it.key()))
                known.append(it.key());
            else
                error(QStringLiteral("\"%1\": expected one of the keys %2")
                          .arg(member(path, it.key()), keys.join(QLatin1String(", "))));
        }
        return known;
    }

    static QString member(const QString &path, const QString &key)
    {
        return path.isEmpty() ? key : path + QLatin1Char('.') + key;
    }

    QStringList readCommand(const QString &key, const QJsonValue &value)
    {
        QStringList command = readList(key, value);
        if (!command.isEmpty()) {
            QString &program = command.first();
            if (program.contains(QLatin1Char('/')))
                program = QFileInfo(m_file).absoluteDir().absoluteFilePath(program);
        } else if (value.isArray()) {
            mismatch(key, QStringLiteral("a program and its arguments"), value);
        }
        return command;
    }

    QString readId(const QJsonValue &value)
    {
        static const QRegularExpression pattern(
            QStringLiteral("\\A[A-Za-z_-][A-Za-z0-9_-]*(\\.[A-Za-z_-][A-Za-z0-9_-]*)*\\z"));
        const QString id = value.toString();
        const int longest = 200; // a bus name has at most 255 characters
        if (!pattern.match(id).hasMatch() || id.length() > longest) {
            mismatch(QStringLiteral("id"),
                     QStringLiteral("at most %1 of the characters A-Z a-z 0-9 _ - and dots between names that begin "
                                    "with no digit")
                         .arg(longest),
                     value);
            return {};
        }
        return id;
    }

    QString readText(const QString &key, const QJsonValue &value)
    {
        const QString text = value.toString();
        if (text.isEmpty())
            mismatch(key, QStringLiteral("a text that is not empty"), value);
        return text;
    }

    QStringList readList(const QString &key, const QJsonValue &value)
    {
        if (!value.isArray()) {
            mismatch(key, QStringLiteral("a list of texts"), value);
            return {};
        }
        QStringList list;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i)
            list.append(readText(QStringLiteral("%1[%2]").arg(key).arg(i), array.at(i)));
        return list;
    }

    void mismatch(const QString &key, const QString &expected, const QJsonValue &found)
    {
        error(QStringLiteral("\"%1\": expected %2, found %3").arg(key, expected, described(found)));
    }

    void error(const QString &text) { m_errors->append(m_file + QLatin1String(": ") + text); }

    const QString m_file;
    QStringList *const m_errors;
};

} // namespace

Manifests readManifests(const QStringList &directories)
{
    Manifests manifests;
    QHash<QString, QString> idFiles;
    QHash<QString, QString> intentFiles;
    // Claims a value for the file, or adds an error if another file has claimed it.
    const auto take = [&manifests](QHash<QString, QString> &files, const QString &key, const QString &value,
                                   const QString &file) {
        if (files.contains(value))
            manifests.errors.append(QStringLiteral("%1: \"%2\": expected one that is not taken, found \"%3\", as in %4")
                                        .arg(file, key, value, files.value(value)));
        else if (!value.isEmpty())
            files.insert(value, file);
    };

    for (const QString &directory : directories) {
        const QDir dir(directory);
        if (!dir.exists()) {
            manifests.errors.append(QStringLiteral("%1: expected a directory with manifests").arg(directory));
            continue;
        }
        const QStringList names = dir.entryList({QStringLiteral("*.json")}, QDir::Files | QDir::System, QDir::Name);
        if (names.isEmpty())
            manifests.errors.append(QStringLiteral("%1: expected manifests, found no *.json file").arg(directory));
        for (const QString &name : names) {
            const Manifest manifest = Reader(dir.filePath(name), &manifests.errors).read();
            take(idFiles, QStringLiteral("id"), manifest.id, manifest.file);
            for (int i = 0; i < manifest.intents.size(); ++i)
                take(intentFiles, QStringLiteral("intents[%1]").arg(i), manifest.intents.at(i), manifest.file);
            manifests.list.append(manifest);
        }
    }
    return manifests;
}
