// SPDX-License-Identifier: BSD-3-Clause
#include "record.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// The directory of the records, locked against other processes until the object is deleted.
class Directory
{
public:
    enum class Missing { Create, Accept };

    Directory(const QByteArray &path, Missing missing) : m_path(path)
    {
        const int openedAs = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        // The last stand-in removes the directory when it ends. It may do so before this process has the lock.
        for (int attempt = 0; attempt < 10; ++attempt) {
            if (missing == Missing::Create)
                ::mkdir(path.constData(), 0700);
            m_descriptor = ::open(path.constData(), openedAs);
            if (m_descriptor < 0) {
                m_problem = qt_error_string();
                return;
            }
            struct stat status = {};
            if (::fstat(m_descriptor, &status) != 0 || status.st_uid != ::geteuid() || (status.st_mode & 0077) != 0) {
                close();
                m_problem = QStringLiteral("expected a directory of this user alone, with the mode 0700");
                return;
            }
            ::flock(m_descriptor, LOCK_EX);
            if (::fstat(m_descriptor, &status) == 0 && status.st_nlink > 0)
                return;
            close();
        }
    }
    ~Directory() { close(); }
    Q_DISABLE_COPY(Directory)

    bool isOpen() const { return m_descriptor >= 0; }
    int descriptor() const { return m_descriptor; }
    const QByteArray &path() const { return m_path; }
    QString problem() const { return m_problem; } ///< the reason why it is not open

private:
    void close()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }

    const QByteArray m_path;
    QString m_problem;
    int m_descriptor = -1;
};

/// The directories in which records may be, the best one first.
QVector<QByteArray> directories()
{
    const auto isUsable = [](const QString &path) {
        struct stat status = {};
        return !path.isEmpty() && ::stat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode)
            && status.st_uid == ::geteuid();
    };
    const QString variable = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QByteArray name = "corvane-standin";
    if (isUsable(variable))
        return {QFile::encodeName(variable) + '/' + name};
    const QByteArray user = QByteArray::number(::geteuid());
    QVector<QByteArray> list;
    if (isUsable(QStringLiteral("/run/user/") + QString::fromLatin1(user))) // of a login session
        list.append("/run/user/" + user + '/' + name);
    list.append("/tmp/" + name + '-' + user);
    const QByteArray temporary = QFile::encodeName(QDir::tempPath()) + '/' + name + '-' + user;
    if (!list.contains(temporary))
        list.append(temporary); // /tmp may be read-only
    return list;
}

QVector<StandInRecord> readAll(const Directory &directory)
{
    QVector<StandInRecord> records;
    const QStringList names =
        QDir(QFile::decodeName(directory.path())).entryList({QStringLiteral("*.json")}, QDir::Files);
    for (const QString &name : names) {
        const QByteArray encoded = QFile::encodeName(name);
        const int descriptor = ::openat(directory.descriptor(), encoded.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
        if (descriptor < 0)
            continue;
        QFile file;
        file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
        if (::flock(descriptor, LOCK_SH | LOCK_NB) == 0) { // its process has ended
            ::unlinkat(directory.descriptor(), encoded.constData(), 0);
            continue;
        }
        const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
        records.append(
            {object.value(QLatin1String("name")).toString(), object.value(QLatin1String("processId")).toInt(),
             object.value(QLatin1String("directory")).toString(), object.value(QLatin1String("busAddress")).toString(),
             object.value(QLatin1String("runtimeDirectory")).toString()});
    }
    return records;
}

bool contains(const QVector<StandInRecord> &records, const QString &name)
{
    return std::any_of(records.cbegin(), records.cend(),
                       [&name](const StandInRecord &record) { return record.name == name; });
}

} // namespace

RecordFile::~RecordFile()
{
    if (m_descriptor < 0)
        return;
    const QByteArray path = QFile::encodeName(QFileInfo(QFile::decodeName(m_path)).path());
    const Directory directory(path, Directory::Missing::Accept);
    remove();
    ::rmdir(path.constData()); // fails if there are other records
}

void RecordFile::remove()
{
    if (m_descriptor < 0)
        return;
    ::unlink(m_path.constData());
    ::close(m_descriptor);
    m_descriptor = -1;
}

QString RecordFile::write(const StandInRecord &record, bool isDefaultName)
{
    QString problem;
    m_record = record;
    const auto paths = directories();
    for (const QByteArray &path : paths) {
        const Directory directory(path, Directory::Missing::Create);
        if (!directory.isOpen()) {
            problem = QStringLiteral("%1 cannot be used: %2").arg(QFile::decodeName(path), directory.problem());
            continue;
        }
        const QVector<StandInRecord> others = readAll(directory);
        m_isNameTaken = !isDefaultName && contains(others, record.name);
        if (m_isNameTaken)
            return QStringLiteral("A stand-in with the name \"%1\" is running already").arg(record.name);
        m_record.name = record.name;
        for (int number = 2; contains(others, m_record.name); ++number)
            m_record.name = QStringLiteral("%1-%2").arg(record.name).arg(number);

        m_path = path + '/' + QByteArray::number(record.processId) + ".json";
        m_descriptor = ::open(m_path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
        QFile file;
        const QByteArray text = QJsonDocument({{QStringLiteral("name"), m_record.name},
                                               {QStringLiteral("processId"), record.processId},
                                               {QStringLiteral("directory"), record.directory},
                                               {QStringLiteral("busAddress"), record.busAddress},
                                               {QStringLiteral("runtimeDirectory"), record.runtimeDirectory}})
                                    .toJson();
        if (m_descriptor >= 0 && ::flock(m_descriptor, LOCK_EX | LOCK_NB) == 0
            && file.open(m_descriptor, QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush())
            return {};
        problem = QStringLiteral("%1 cannot be written: %2").arg(QFile::decodeName(m_path), qt_error_string());
        remove();
    }
    return problem;
}

QVector<StandInRecord> runningStandIns()
{
    QVector<StandInRecord> records;
    const auto paths = directories();
    for (const QByteArray &path : paths) {
        const Directory directory(path, Directory::Missing::Accept);
        if (!directory.isOpen())
            continue;
        records += readAll(directory);
        ::rmdir(path.constData()); // fails if there are records
    }
    return records;
}
