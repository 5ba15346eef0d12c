// SPDX-License-Identifier: BSD-3-Clause
// Opens the files that an object names at JSON paths. The input is {"name": "X", "readFiles": ["a[*]"], "writeFiles":
// [], "source": {"a": ["file"]}}. The current directory contains a file of every kind; TREE in the input is its path.
// The opened files and their modes must agree with the model. If root runs the target, the library has the file
// permissions of the user nobody.
#include <Corvane/file_sharing.h>

#include <expect.h>
#include <json_input.h>
#include <json_path_model.h>
#include <ordinary_user.h>
#include <target.h>

#include <QtCore/QFile>
#include <QtCore/QSet>
#include <QtCore/QUrl>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <array>
#include <cstring>
#include <fcntl.h>
#include <fts.h>
#include <memory>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Corvane;
using namespace Fuzz;

namespace {

constexpr int MaxFiles = 200; // each needs two descriptors
constexpr int MaxOtherDescriptors = 64; // of the program itself
constexpr off_t ContentSize = 7;
constexpr mode_t Umask = 002; // keeps the group's write bit, which a fixed mode such as 0644 lacks

void check(int result, const char *what)
{
    if (result < 0)
        fail(QString("Cannot make %1: %2").arg(what, qt_error_string(errno)));
}

void makeFile(const char *name, mode_t mode)
{
    QFile file(QString::fromUtf8(name));
    if (!file.open(QIODevice::WriteOnly) || file.write("content") != ContentSize)
        fail("Cannot make " + file.fileName());
    check(::fchmod(file.handle(), mode), name);
}

QByteArray makeTree()
{
    const QByteArray tree = QFile::encodeName(temporaryDirectory());
    check(::chmod(tree.constData(), 0755), "the tree");
    check(::chdir(tree.constData()), "the tree current");
    ::umask(Umask);
    makeFile("file", 0644);
    makeFile("read-only", 0444);
    makeFile("write-only", 0222);
    makeFile("unreadable", 0);
    makeFile("žluťoučký 🐎", 0644);
    makeFile("with space %41", 0644);
    check(::mkfifo("fifo", 0666), "a FIFO");
    check(::mknod("socket", S_IFSOCK | 0666, 0), "a socket");
    check(::mkdir("directory", 0755), "a directory");
    makeFile("directory/file", 0644);
    check(::mkdir("closed", 0555), "a directory");
    check(::symlink("file", "link"), "a link");
    check(::symlink("directory", "directory-link"), "a link");
    check(::symlink("made", "dangling"), "a link");
    check(::symlink("loop", "loop"), "a link");
    if (::geteuid() == 0) {
        for (const char *name : {".", "file", "read-only", "write-only", "unreadable", "žluťoučký 🐎", "with space %41",
                                 "fifo", "socket", "directory", "directory/file", "closed"})
            check(::chown(name, Nobody, Nobody), name);
    }
    return tree;
}

struct Entry
{
    QByteArray name;
    mode_t mode;
    off_t size;

    bool operator==(const Entry &other) const { return name == other.name && mode == other.mode && size == other.size; }
};

QDebug operator<<(QDebug debug, const Entry &entry)
{
    return debug
        << QString("%1 %2 %3").arg(QFile::decodeName(entry.name), QString::number(entry.mode, 8)).arg(entry.size);
}

/// Returns the name, mode and size of every file in the tree.
QVector<Entry> contentOfTree()
{
    char root[] = ".";
    char *const roots[] = {root, nullptr};
    const auto byName = [](const FTSENT **a, const FTSENT **b) { return std::strcmp((*a)->fts_name, (*b)->fts_name); };
    const std::unique_ptr<FTS, decltype(&::fts_close)> walk(::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, byName),
                                                            ::fts_close);
    if (!walk)
        fail("Cannot list the tree: " + qt_error_string(errno));
    QVector<Entry> content;
    while (const FTSENT *entry = ::fts_read(walk.get())) {
        if (entry->fts_info == FTS_DP) // the second visit of a directory
            continue;
        if (!entry->fts_statp || entry->fts_info == FTS_NS || entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR)
            fail("Cannot list the tree at " + QFile::decodeName(entry->fts_path));
        const struct stat &status = *entry->fts_statp;
        content.append({entry->fts_path, status.st_mode, S_ISDIR(status.st_mode) ? 0 : status.st_size});
    }
    return content;
}

/// Returns whether the tree has changed since the last call: a file was created, removed, renamed, written or changed
/// in mode.
bool hasTreeChanged()
{
    static const int watch = [] {
        const int result = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        check(result, "a watch");
        for (const char *directory : {".", "directory", "closed"})
            check(::inotify_add_watch(result, directory, IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE),
                  directory);
        return result;
    }();
    alignas(inotify_event) static char events[4096];
    bool hasChanged = false;
    while (::read(watch, events, sizeof events) > 0)
        hasChanged = true;
    return hasChanged;
}

/// Returns whether the name is within the tree. Symbolic links are not resolved.
bool isInTree(const QByteArray &name, const QByteArray &tree)
{
    return !name.split('/').contains("..") && (!name.startsWith('/') || name.startsWith(tree + '/'));
}

/// Returns whether the file can be opened or, for writing, created.
bool canOpen(const QByteArray &name, bool forWriting)
{
    struct stat status = {};
    if (::stat(name.constData(), &status) == 0) {
        const mode_t needed = forWriting ? S_IRUSR | S_IWUSR : S_IRUSR;
        return (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode)) && (status.st_mode & needed) == needed;
    }
    if (!forWriting || errno != ENOENT || name.isEmpty() || name.endsWith('/'))
        return false;
    std::array<char, PATH_MAX>
        target; // NOLINT(cppcoreguidelines-pro-type-member-init): clearing it would need most of the time
    const ssize_t size = ::readlink(name.constData(), target.data(), target.size());
    if (size > 0)
        return canOpen(name.left(name.lastIndexOf('/') + 1) + QByteArray(target.data(), int(size)), true);
    const QByteArray parent = name.contains('/') ? name.left(name.lastIndexOf('/') + 1) : QByteArray(".");
    return ::stat(parent.constData(), &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & S_IWUSR) != 0;
}

/// Returns the names of the files in the values at the paths.
QStringList namesIn(const QJsonObject &source, const QStringList &patterns)
{
    QVector<QJsonValue> values;
    for (const QString &pattern : patterns) {
        const auto found = matches(source, pattern);
        for (const auto &match : found)
            values.append(valueAt(source, match.first));
    }
    QStringList names;
    for (const QJsonValue &value : qAsConst(values)) {
        QString name = value.toString();
        if (name.contains(':')) {
            const QUrl url(name, QUrl::TolerantMode);
            name = url.isLocalFile() ? url.toLocalFile() : QString();
        }
        if (!name.isEmpty())
            names.append(name);
    }
    return names;
}

struct Row
{
    QString files;
    QString descriptors;
    bool isForWriting;
    QStringList patterns;
    QStringList named; ///< All files that the values at the paths name.
    QStringList names; ///< The files that can be opened.
};

QString quoted(const QString &text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}

void expectDescriptor(const QDBusUnixFileDescriptor &descriptor, const QString &name, bool isForWriting)
{
    const int fd = descriptor.fileDescriptor();
    struct stat actual = {};
    struct stat expected = {};
    expectEqual("A descriptor is open", ::fstat(fd, &actual), 0);
    expectEqual("A file is there", ::stat(QFile::encodeName(name).constData(), &expected), 0);
    expectEqual("Device of the file", quint64(actual.st_dev), quint64(expected.st_dev));
    expectEqual("Inode of the file", quint64(actual.st_ino), quint64(expected.st_ino));
    const int flags = ::fcntl(fd, F_GETFL);
    expectEqual("Access mode", flags & O_ACCMODE, isForWriting ? O_RDWR : O_RDONLY);
    expectEqual("O_NONBLOCK", flags & O_NONBLOCK, 0);
    expectEqual("Close-on-exec", ::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    static const QByteArray tree = makeTree();
    static const QVector<Entry> content = contentOfTree();
    hasTreeChanged();
    QByteArray text(reinterpret_cast<const char *>(data), int(size));
    text.replace("TREE", tree);
    const QJsonObject input =
        jsonInput(reinterpret_cast<const std::uint8_t *>(text.constData()), std::size_t(text.size()));
    const QString name = input.value("name").toString();
    const QJsonObject source = input.value("source").toObject();
    takeWarnings();

    std::array<Row, 2> rows = {Row{"readFiles", "readFds", false, {}, {}, {}},
                               Row{"writeFiles", "writeFds", true, {}, {}, {}}};
    QVariantMap map;
    for (const Row &row : rows) {
        if (input.contains(row.files))
            map.insert(row.files, input.value(row.files).toVariant());
    }
    QVariantMap expected = map;
    if (name == "OpenURI")
        expected["readFiles"] = QStringList(source.value("uri").isArray() ? "uri[*]" : "uri");

    int fileCount = 0;
    for (Row &row : rows) {
        row.patterns = expected.value(row.files).toStringList();
        if (!row.patterns.isEmpty())
            expected[row.files] = row.patterns;
        row.named = namesIn(source, row.patterns);
        if (row.named.size() > MaxFiles)
            return;
        fileCount += row.named.size();
    }

    // The kernel assigns the lowest free number. A descriptor that stays open therefore has a number below this one.
    const int descriptorEnd = MaxOtherDescriptors + 2 * fileCount;
    const QVector<OpenDescriptor> before = openDescriptors(descriptorEnd);
    QStringList warnings;
    QSet<QByteArray> made;
    {
        const OrdinaryUser user;
        for (Row &row : rows) {
            for (const QString &file : qAsConst(row.named)) {
                const QByteArray path = QFile::encodeName(file);
                if (!isInTree(path, tree))
                    return;
                if (file.contains(QChar(QChar::Null)) || !canOpen(path, row.isForWriting)) {
                    warnings.append("Failed to open file " + quoted(file));
                    break;
                }
                if (!QFile::exists(file))
                    made.insert(path);
                row.names.append(file);
            }
        }
        FileSharing::setUriHint(name, source, map);
        FileSharing::exportFiles(source, map);
    }
    expectWarnings(warnings);
    for (const Row &row : rows) {
        const auto descriptors = map.take(row.descriptors).value<QList<QDBusUnixFileDescriptor>>();
        expectEqual("Number of descriptors", descriptors.size(), row.names.size());
        for (int i = 0; i < descriptors.size(); ++i)
            expectDescriptor(descriptors[i], row.names[i], row.isForWriting);
    }
    expectEqual("The rest of the map", map, expected);
    expectEqual("Open descriptors", openDescriptors(descriptorEnd), before);

    for (const QByteArray &path : qAsConst(made)) {
        struct stat status = {};
        expectEqual("A file was made", ::stat(path.constData(), &status), 0);
        expectEqual("Kind and mode of a file that was made", status.st_mode, S_IFREG | (0666 & ~Umask));
    }
    for (const QByteArray &path : qAsConst(made)) { // two names may be of the same file
        std::array<char, PATH_MAX> real = {};
        if (::realpath(path.constData(), real.data()))
            ::unlink(real.data());
    }
    if (hasTreeChanged())
        expectEqual("Files in the tree", contentOfTree(), content);
}
