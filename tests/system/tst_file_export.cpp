// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/file_sharing.h>

#include <message_log.h>
#include <ordinary_user.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

using namespace Corvane;

static_assert(std::is_same_v<decltype(&FileSharing::exportFiles), void (*)(const QJsonObject &, QVariantMap &)>);

namespace {

const QString ReadFiles = QStringLiteral("readFiles");
const QString WriteFiles = QStringLiteral("writeFiles");
const QString ReadFds = QStringLiteral("readFds");
const QString WriteFds = QStringLiteral("writeFds");

QString warningFor(const QString &file)
{
    return QString("Failed to open file \"%1\"").arg(file);
}

/// Returns the paths of the files that the descriptors under \a key refer to.
QStringList filesBehind(const QVariantMap &map, const QString &key)
{
    QStringList files;
    const auto descriptors = map.value(key).value<QList<QDBusUnixFileDescriptor>>();
    for (const QDBusUnixFileDescriptor &descriptor : descriptors)
        files << QFile::symLinkTarget(QString("/proc/self/fd/%1").arg(descriptor.fileDescriptor()));
    return files;
}

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

} // namespace

class TestFileExport : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void openUriSharesItsUri_data();
    void openUriSharesItsUri();
    void bothFileListsAreWrittenEvenIfEmpty();
    void mapWithoutListsIsUnchanged_data();
    void mapWithoutListsIsUnchanged();
    void onlyLocalFilesAreOpened();
    void fileNamesAreNotDecoded();
    void repeatedFilesAreOpenedRepeatedly();
    void listBecomesStringList_data();
    void listBecomesStringList();
    void warningNamesTheFunction();
    void namesWithAColonAreUrls();
    void descriptorsAreStoredAsARegisteredType();
    void descriptorsReplaceAnEarlierValue();
    void filesToReadAreOpenedFirst();
    void permissionsAreThoseOfAnOrdinaryUser_data();
    void permissionsAreThoseOfAnOrdinaryUser();
    void descriptorsHaveTheRightModes();
    void missingFileIsCreatedOnlyForWriting();
    void fileIsNotTruncated();
    void firstFailureEndsItsListOnly();
    void directoryCannotBeOpened();
    void nameWithNulIsNotTruncated();
    void fifoDoesNotBlock();
    void filesUnderUnnamableKeysAreNotOpened();
    void openFailsWithoutAFreeDescriptor();
    void noDescriptorStaysOpen();
    void openingStopsAtTheFirstFailure_data();
    void openingStopsAtTheFirstFailure();
    void openingReturnsNothingOnSuccess();

private:
    QString file(const char *name, const QByteArray &content = "content");

    std::unique_ptr<QTemporaryDir> directory;
};

void TestFileExport::init()
{
    directory = std::make_unique<QTemporaryDir>();
    QVERIFY(directory->isValid());
}

/// Creates a file in the temporary directory.
QString TestFileExport::file(const char *name, const QByteArray &content)
{
    QFile file(directory->filePath(QString::fromUtf8(name)));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("Cannot write %s", qUtf8Printable(file.fileName()));
    return file.fileName();
}

void TestFileExport::openUriSharesItsUri_data()
{
    QTest::addColumn<QString>("intent");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QVariantMap>("expected");

    const QString uri = "uri";
    const auto reading = [](const char *path) {
        return QVariantMap{{ReadFiles, QStringList(QString::fromLatin1(path))}};
    };
    QTest::newRow("string") << "OpenURI" << QJsonObject{{uri, "x"}} << reading("uri");
    QTest::newRow("array") << "OpenURI" << QJsonObject{{uri, QJsonArray()}} << reading("uri[*]");
    QTest::newRow("absent") << "OpenURI" << QJsonObject() << reading("uri");
    QTest::newRow("number") << "OpenURI" << QJsonObject{{uri, 1}} << reading("uri");
    QTest::newRow("other case") << "OpenUri" << QJsonObject{{uri, "x"}}
                                << QVariantMap{{ReadFiles, QStringList("before")}};
}

void TestFileExport::openUriSharesItsUri()
{
    QFETCH(QString, intent);
    QFETCH(QJsonObject, params);
    QFETCH(QVariantMap, expected);

    QVariantMap map{{ReadFiles, QStringList("before")}};
    FileSharing::setUriHint(intent, params, map);
    QCOMPARE(map, expected);
}

void TestFileExport::bothFileListsAreWrittenEvenIfEmpty()
{
    QVariantMap map{{ReadFiles, 1}};
    FileSharing::setFileLists({}, {"a"}, map);
    QCOMPARE(map, QVariantMap({{ReadFiles, QStringList()}, {WriteFiles, QStringList("a")}}));
}

void TestFileExport::mapWithoutListsIsUnchanged_data()
{
    QTest::addColumn<QVariantMap>("map");

    QTest::newRow("empty") << QVariantMap();
    QTest::newRow("other keys") << QVariantMap{{"readfiles", QStringList("a")}};
    QTest::newRow("empty lists") << QVariantMap{{ReadFiles, QStringList()}, {WriteFiles, QVariantList()}};
    QTest::newRow("no lists") << QVariantMap{{ReadFiles, true}};
}

void TestFileExport::mapWithoutListsIsUnchanged()
{
    QFETCH(QVariantMap, map);

    const QVariantMap before = map;
    FileSharing::exportFiles({{"a", file("a")}}, map);
    QCOMPARE(map, before);
}

void TestFileExport::onlyLocalFilesAreOpened()
{
    const QString a = file("a");
    const QString b = file("b c");
    const QJsonObject source{
        {"files",
         QJsonArray{a, QUrl::fromLocalFile(b).toString(), "http://x/" + a, 5, QString(), "file:", QJsonValue()}}};
    QVariantMap map{{ReadFiles, QStringList{"files[*]", "absent"}}};
    MessageLog log;
    FileSharing::exportFiles(source, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList({a, b}));
    QVERIFY(!map.contains(WriteFds));
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestFileExport::fileNamesAreNotDecoded()
{
    const QString a = file("a");
    const QString link = directory->filePath("link");
    QVERIFY(QFile::link(a, link));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory->path()));
    const QJsonArray files{link, "a", QString("../%1/a").arg(QDir(directory->path()).dirName()), "/dev/null",
                           "file://host/a"};
    QVariantMap map{{ReadFiles, QStringList("files[*]")}};
    MessageLog log;
    FileSharing::exportFiles({{"files", files}}, map);
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(filesBehind(map, ReadFds), QStringList({a, a, a, "/dev/null"}));
    QCOMPARE(log.takeWarnings(), QStringList(warningFor("//host/a"))); // the path is /host/a
}

void TestFileExport::repeatedFilesAreOpenedRepeatedly()
{
    const QString a = file("a");
    QVariantMap map{{ReadFiles, QStringList{"a", "a", "*"}}};
    FileSharing::exportFiles({{"a", a}}, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList({a, a, a}));
}

void TestFileExport::listBecomesStringList_data()
{
    QTest::addColumn<QVariant>("list");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<int>("count"); // of descriptors

    const QString a = "a";
    QTest::newRow("string list") << QVariant(QStringList{a, a}) << QVariant(QStringList{a, a}) << 2;
    QTest::newRow("list") << QVariant(QVariantList{a, 5.0, true}) << QVariant(QStringList{a, "5", "true"}) << 1;
    QTest::newRow("string") << QVariant(a) << QVariant(QStringList{a}) << 1;
    QTest::newRow("empty string") << QVariant(QString()) << QVariant(QStringList{QString()}) << 0;

    // An empty path selects the root object, which is not a string.
    QTest::newRow("invalid values") << QVariant(QVariantList{QVariant(), a, QVariant()})
                                    << QVariant(QStringList{QString(), a, QString()}) << 1;
    QTest::newRow("nulls") << QVariant(QVariantList{QVariant::fromValue(nullptr), a})
                           << QVariant(QStringList{QString(), a}) << 1;
    QTest::newRow("nulls alone") << QVariant(QVariantList{QVariant::fromValue(nullptr)})
                                 << QVariant(QStringList{QString()}) << 0;
    QTest::newRow("map within") << QVariant(QVariantList{QVariantMap{{a, a}}, a}) << QVariant(QStringList{QString(), a})
                                << 1;

    // A value that cannot become a string list is unchanged.
    QTest::newRow("number") << QVariant(5) << QVariant(5) << 0;
    QTest::newRow("map") << QVariant(QVariantMap{{a, a}}) << QVariant(QVariantMap{{a, a}}) << 0;
    QTest::newRow("invalid") << QVariant() << QVariant() << 0;
}

void TestFileExport::listBecomesStringList()
{
    QFETCH(QVariant, list);
    QFETCH(QVariant, expected);
    QFETCH(int, count);

    const QString a = file("a");
    QVariantMap map{{ReadFiles, list}, {WriteFiles, list}};
    MessageLog log;
    FileSharing::exportFiles({{"a", a}}, map);
    for (const QString &key : {ReadFiles, WriteFiles}) {
        QCOMPARE(map.value(key).userType(), expected.userType());
        QCOMPARE(map.value(key), expected);
    }
    for (const QString &key : {ReadFds, WriteFds}) {
        QCOMPARE(map.contains(key), count > 0);
        QCOMPARE(filesBehind(map, key).size(), count);
    }
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestFileExport::warningNamesTheFunction()
{
    QVariantMap map{{ReadFiles, QStringList("a")}};
    MessageLog log;
    FileSharing::exportFiles({{"a", directory->filePath("missing")}}, map);
    QCOMPARE(log.takeWarnings().size(), 1);
    QString function = log.lastFunction();
    function.replace(" &", "&"); // clang and GCC differ in the space
    QCOMPARE(function, QString("static void Corvane::FileSharing::exportFiles(const QJsonObject&, QVariantMap&)"));
}

void TestFileExport::namesWithAColonAreUrls()
{
    const QString plain = file("x:y");
    const QString encoded = file("x:y z%");
    const QJsonArray files{plain, "FILE://" + plain, QString::fromUtf8(QUrl::fromLocalFile(encoded).toEncoded()),
                           QString("file://" + plain).replace('y', "%79")};
    QVariantMap map{{ReadFiles, QStringList("files[*]")}};
    MessageLog log;
    FileSharing::exportFiles({{"files", files}}, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList({plain, encoded, plain}));
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestFileExport::descriptorsAreStoredAsARegisteredType()
{
    QVariantMap map{{ReadFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", file("a")}}, map);
    const QVariant descriptors = map.value(ReadFds);
    QCOMPARE(QByteArray(descriptors.typeName()), QByteArray("QList<QDBusUnixFileDescriptor>"));
    QVERIFY(descriptors.canConvert<QVariantList>());
    QCOMPARE(descriptors.value<QVariantList>().size(), 1);
}

void TestFileExport::descriptorsReplaceAnEarlierValue()
{
    const QString a = file("a");
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("none")}, {ReadFds, 1}, {WriteFds, 2}};
    FileSharing::exportFiles({{"a", a}}, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList(a));
    QCOMPARE(map.value(WriteFds), QVariant(2)); // no descriptors for an empty list
}

void TestFileExport::filesToReadAreOpenedFirst()
{
    const QString made = directory->filePath("made");
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("a")}};
    MessageLog log;
    FileSharing::exportFiles({{"a", made}}, map);
    QVERIFY(!map.contains(ReadFds)); // the file was created later
    QCOMPARE(filesBehind(map, WriteFds), QStringList(made));
    QCOMPARE(log.takeWarnings(), QStringList(warningFor(made)));
}

void TestFileExport::permissionsAreThoseOfAnOrdinaryUser_data()
{
    QTest::addColumn<int>("fileMode"); // 0: the file does not exist
    QTest::addColumn<int>("directoryMode");
    QTest::addColumn<bool>("isReadable");
    QTest::addColumn<bool>("isWritable");

    QTest::newRow("all rights") << 0666 << 0777 << true << true;
    QTest::newRow("read-only") << 0444 << 0777 << true << false;
    QTest::newRow("write-only") << 0222 << 0777 << false
                                << false; // files for writing are opened for reading and writing
    QTest::newRow("none") << 0111 << 0777 << false << false;
    QTest::newRow("in a read-only directory") << 0666 << 0555 << true << true;
    QTest::newRow("in a closed directory") << 0666 << 0444 << false << false;
    QTest::newRow("missing") << 0 << 0777 << false << true;
    QTest::newRow("missing in a read-only directory") << 0 << 0555 << false << false;
}

void TestFileExport::permissionsAreThoseOfAnOrdinaryUser()
{
    QFETCH(int, fileMode);
    QFETCH(int, directoryMode);
    QFETCH(bool, isReadable);
    QFETCH(bool, isWritable);

    const QString name = fileMode ? file("a") : directory->filePath("a");
    const QString last = "/dev/null"; // opened only if no earlier file has failed
    if (fileMode)
        QCOMPARE(::chmod(QFile::encodeName(name).constData(), mode_t(fileMode)), 0);
    QCOMPARE(::chmod(QFile::encodeName(directory->path()).constData(), mode_t(directoryMode)), 0);

    const QStringList patterns("files[*]");
    QVariantMap map{{ReadFiles, patterns}, {WriteFiles, patterns}};
    MessageLog log;
    {
        const OrdinaryUser user;
        FileSharing::exportFiles({{"files", QJsonArray{name, last}}}, map);
    }
    QCOMPARE(::chmod(QFile::encodeName(directory->path()).constData(), 0700), 0);
    QCOMPARE(filesBehind(map, ReadFds), isReadable ? QStringList({name, last}) : QStringList());
    QCOMPARE(filesBehind(map, WriteFds), isWritable ? QStringList({name, last}) : QStringList());
    QCOMPARE(log.takeWarnings(), QVector<QString>(int(!isReadable) + int(!isWritable), warningFor(name)).toList());
}

void TestFileExport::descriptorsHaveTheRightModes()
{
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", file("a")}}, map);
    for (const QString &key : {ReadFds, WriteFds}) {
        const auto descriptors = map.value(key).value<QList<QDBusUnixFileDescriptor>>();
        QCOMPARE(descriptors.size(), 1);
        const int fd = descriptors.first().fileDescriptor();
        const int flags = ::fcntl(fd, F_GETFL);
        QCOMPARE(flags & O_ACCMODE, key == ReadFds ? O_RDONLY : O_RDWR);
        QCOMPARE(flags & O_NONBLOCK, 0);
        QCOMPARE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
}

void TestFileExport::missingFileIsCreatedOnlyForWriting()
{
    const QString missing = directory->filePath("missing");
    MessageLog log;
    QVariantMap reading{{ReadFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", missing}}, reading);
    QVERIFY(!reading.contains(ReadFds));
    QVERIFY(!QFile::exists(missing));
    QCOMPARE(log.takeWarnings(), QStringList(warningFor(missing)));

    QVariantMap writing{{WriteFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", missing}}, writing);
    QCOMPARE(filesBehind(writing, WriteFds), QStringList(missing));
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestFileExport::fileIsNotTruncated()
{
    const QString a = file("a", "kept");
    QVariantMap map{{WriteFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", a}}, map);
    QFile read(a);
    QVERIFY(read.open(QIODevice::ReadOnly));
    QCOMPARE(read.readAll(), QByteArray("kept"));
}

void TestFileExport::firstFailureEndsItsListOnly()
{
    const QString a = file("a");
    const QString missing = directory->filePath("missing");
    const QString c = file("c");
    QVariantMap map{{ReadFiles, QStringList("files[*]")}, {WriteFiles, QStringList("files[-1]")}};
    MessageLog log;
    FileSharing::exportFiles({{"files", QJsonArray{a, missing, c}}}, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList(a));
    QCOMPARE(filesBehind(map, WriteFds), QStringList(c));
    QCOMPARE(log.takeWarnings(), QStringList(warningFor(missing)));
}

void TestFileExport::directoryCannotBeOpened()
{
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("a")}};
    MessageLog log;
    FileSharing::exportFiles({{"a", directory->path()}}, map);
    QVERIFY(!map.contains(ReadFds));
    QVERIFY(!map.contains(WriteFds));
    QCOMPARE(log.takeWarnings(), QStringList({warningFor(directory->path()), warningFor(directory->path())}));
}

void TestFileExport::nameWithNulIsNotTruncated()
{
    const QString uri = QUrl::fromLocalFile(file("secret")).toString() + "%00.png";
    QVariantMap map{{ReadFiles, QStringList("uri")}};
    MessageLog log;
    FileSharing::exportFiles({{"uri", uri}}, map);
    QVERIFY(!map.contains(ReadFds));
    QCOMPARE(log.takeWarnings().size(), 1);
}

void TestFileExport::fifoDoesNotBlock()
{
    const QString fifo = directory->filePath("fifo");
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("a")}};
    FileSharing::exportFiles({{"a", fifo}}, map);
    QCOMPARE(filesBehind(map, ReadFds), QStringList(fifo));
    QCOMPARE(filesBehind(map, WriteFds), QStringList(fifo));
}

void TestFileExport::filesUnderUnnamableKeysAreNotOpened()
{
    const QString a = file("a");
    const QJsonObject source{{"a.b", a}, {"c[0]", a}, {QString(), a}};
    QVariantMap map{{ReadFiles, QStringList("*")}};
    MessageLog log;
    FileSharing::exportFiles(source, map);
    QVERIFY(!map.contains(ReadFds));
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestFileExport::openFailsWithoutAFreeDescriptor()
{
    const QString a = file("a");
    QJsonArray files;
    for (int i = 0; i < 12; ++i)
        files.append(a);

    rlimit original = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &original), 0);
    const rlimit tight{rlim_t(openDescriptors()) + 10, original.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<int> free;
    for (int fd = ::dup(0); fd >= 0; fd = ::dup(0))
        free.push_back(fd);
    for (const int fd : free)
        ::close(fd);
    QVariantMap map{{ReadFiles, QStringList("files[*]")}};
    MessageLog log;
    FileSharing::exportFiles({{"files", files}}, map);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &original), 0);

    // Each file needs two descriptors until all are open: sending duplicates each descriptor.
    QVERIFY(!free.empty() && free.size() < 24);
    QCOMPARE(filesBehind(map, ReadFds).size(), int(free.size()) / 2);
    QCOMPARE(log.takeWarnings(), QStringList(warningFor(a)));
}

void TestFileExport::noDescriptorStaysOpen()
{
    const int before = openDescriptors();
    {
        QVariantMap map{{ReadFiles, QStringList{"a", "d"}}, {WriteFiles, QStringList("a")}};
        MessageLog log;
        FileSharing::exportFiles({{"a", file("a")}, {"d", directory->path()}}, map);
        QCOMPARE(openDescriptors(), before + 2);
        QCOMPARE(log.takeWarnings().size(), 1);
    }
    QCOMPARE(openDescriptors(), before);
}

void TestFileExport::openingStopsAtTheFirstFailure_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("reason");
    QTest::newRow("missing") << "/nonexistent/a"
                             << "No such file or directory";
    QTest::newRow("directory") << "/"
                               << "Is a directory";
    QTest::newRow("U+0000") << QString("/dev/null") + QChar(0) + ".png"
                            << "Invalid argument";
}

void TestFileExport::openingStopsAtTheFirstFailure()
{
    QFETCH(QString, file);
    QFETCH(QString, reason);

    const QTemporaryDir empty;
    const QString created = empty.filePath("created");
    QVariantMap map{{ReadFiles, QStringList{"a", "b", "c"}}, {WriteFiles, QStringList("d")}};
    const QJsonObject source{{"a", "/dev/null"}, {"b", file}, {"c", "/dev/zero"}, {"d", created}};
    QCOMPARE(FileSharing::openFiles(source, map), QString("Cannot open the file \"%1\": %2").arg(file, reason));
    QCOMPARE(filesBehind(map, ReadFds), QStringList("/dev/null"));
    QVERIFY(!map.contains(WriteFds));
    QVERIFY(!QFile::exists(created));
}

void TestFileExport::openingReturnsNothingOnSuccess()
{
    QVariantMap map{{ReadFiles, QStringList("a")}, {WriteFiles, QStringList("a")}};
    QCOMPARE(FileSharing::openFiles({{"a", "/dev/null"}}, map), QString());
    QCOMPARE(filesBehind(map, ReadFds), QStringList("/dev/null"));
    QCOMPARE(filesBehind(map, WriteFds), QStringList("/dev/null"));
}

QTEST_GUILESS_MAIN(TestFileExport)
#include "tst_file_export.moc"
