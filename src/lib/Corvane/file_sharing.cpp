// SPDX-License-Identifier: BSD-3-Clause
#include "file_sharing.h"

#include <Core/json_array.h>
#include <Core/json_path.h>
#include <DBus/keys.h>
#include <DBus/message_meter.h>

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QUrl>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(sizeof(off_t) == 8, "Files of 2 GiB and more can be opened only with 64-bit offsets");

namespace Corvane {

namespace {

using Descriptors = QList<QDBusUnixFileDescriptor>;

constexpr char OpenUri[] = "OpenURI";

/// Returns the file that a value names. Empty if the value names no file.
QString fileName(const QJsonValue &value)
{
    const QString text = value.toString();
    if (!text.contains(QLatin1Char(':')))
        return text;
    return QUrl(text, QUrl::TolerantMode).toLocalFile(); // empty if the URL is not a local file
}

QStringList fileNames(const QJsonObject &source, const QStringList &patterns)
{
    QStringList names;
    for (const QString &pattern : patterns) {
        const QStringList paths = Core::JsonPath::expand(source, pattern);
        for (const QString &path : paths) {
            const QString name = fileName(Core::JsonPath::value(source, path));
            if (!name.isEmpty())
                names.append(name);
        }
    }
    return names;
}

/// Returns an invalid descriptor and sets errno if the file cannot be opened. QFile is not used: it blocks on a FIFO.
QDBusUnixFileDescriptor openFile(const QString &name, QIODevice::OpenMode mode)
{
    QDBusUnixFileDescriptor descriptor;
    if (name.contains(QChar(QChar::Null))) { // the system would cut the name there
        errno = EINVAL;
        return descriptor;
    }

    const int access = mode == QIODevice::ReadOnly ? O_RDONLY : O_RDWR | O_CREAT;
    const QByteArray path = QFile::encodeName(name);
    int fd = -1;
    do {
        fd = ::open(path.constData(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return descriptor;
    descriptor.giveFileDescriptor(fd);

    struct stat status = {};
    if (::fstat(fd, &status) != 0)
        return {};
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return {};
    }
    if (::fcntl(fd, F_SETFL, 0) != 0) // clears O_NONBLOCK, the only flag
        return {};
    return descriptor;
}

/// A file that cannot be opened.
struct Failure
{
    QString name;
    int errorNumber;
};

enum class AfterFailure { Stop, ContinueWithNextList };

QVector<Failure> open(const QJsonObject &source, QVariantMap &map, AfterFailure afterFailure)
{
    struct Row
    {
        const QString &files;
        const QString &descriptors;
        QIODevice::OpenMode mode;
    };
    static const Row rows[] = {
        {Keys::ReadFiles, Keys::ReadFds, QIODevice::ReadOnly},
        {Keys::WriteFiles, Keys::WriteFds, QIODevice::ReadWrite},
    };

    QVector<Failure> failures;
    Descriptors reserve; // reserves file descriptors for the duplicates that sending makes
    for (const Row &row : rows) {
        const QStringList patterns = map.value(row.files).toStringList();
        if (patterns.isEmpty())
            continue;
        map.insert(row.files, patterns); // a list from JSON is a QVariantList

        Descriptors descriptors;
        const QStringList names = fileNames(source, patterns);
        for (const QString &name : names) {
            const QDBusUnixFileDescriptor descriptor = openFile(name, row.mode);
            if (!descriptor.isValid()) {
                failures.append({name, errno});
                break;
            }
            const QDBusUnixFileDescriptor duplicate(descriptor.fileDescriptor());
            if (!duplicate.isValid()) {
                failures.append({name, EMFILE});
                break;
            }
            descriptors.append(descriptor);
            reserve.append(duplicate);
        }
        if (!descriptors.isEmpty())
            map.insert(row.descriptors, QVariant::fromValue(descriptors));
        if (!failures.isEmpty() && afterFailure == AfterFailure::Stop)
            break;
    }
    return failures;
}

} // namespace

void FileSharing::setFileLists(const QStringList &readFiles, const QStringList &writeFiles, QVariantMap &map)
{
    map.insert(Keys::ReadFiles, readFiles);
    map.insert(Keys::WriteFiles, writeFiles);
}

QJsonObject FileSharing::convertibleHints(const QString &intentName, const QJsonObject &hints)
{
    QJsonObject result = hints;
    if (intentName == QLatin1String(OpenUri))
        result.remove(Keys::ReadFiles);
    for (const QString &key : {Keys::ReadFiles, Keys::WriteFiles}) {
        const QJsonArray list = result.value(key).toArray();
        if (list.isEmpty() || Core::commonType(list))
            continue;
        QJsonArray paths;
        for (const auto &element : list) {
            const QJsonValue value = element;
            paths.append(value.isArray() || value.isObject() ? QString() : value.toVariant().toString());
        }
        result.insert(key, paths);
    }
    return result;
}

void FileSharing::setUriHint(const QString &intentName, const QJsonObject &params, QVariantMap &map)
{
    if (intentName != QLatin1String(OpenUri))
        return;
    const bool several = params.value(QLatin1String("uri")).isArray();
    map.insert(Keys::ReadFiles, QStringList(several ? QStringLiteral("uri[*]") : QStringLiteral("uri")));
}

void FileSharing::exportFiles(const QJsonObject &source, QVariantMap &map)
{
    const QVector<Failure> failures = open(source, map, AfterFailure::ContinueWithNextList);
    for (const Failure &failure : failures)
        qWarning() << "Failed to open file" << failure.name;
}

QString FileSharing::openFiles(const QJsonObject &source, QVariantMap &map)
{
    const QVector<Failure> failures = open(source, map, AfterFailure::Stop);
    if (failures.isEmpty())
        return {};
    const Failure &failure = failures.constFirst();
    return QStringLiteral("Cannot open the file \"%1\": %2").arg(failure.name, qt_error_string(failure.errorNumber));
}

QString FileSharing::addTo(MessageMeter &meter, const QJsonObject &source, QVariantMap &map, Mode mode)
{
    MessageMeter withoutFiles = meter;
    withoutFiles.add(map);
    QString problem = withoutFiles.problem();
    if (!problem.isEmpty())
        return problem;
    if (mode == Required)
        problem = openFiles(source, map);
    else
        exportFiles(source, map);
    if (!problem.isEmpty())
        return problem;
    meter.add(map);
    return meter.problem();
}

} // namespace Corvane
