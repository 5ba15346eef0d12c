// SPDX-License-Identifier: BSD-3-Clause
// The received files of intents and replies.
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Corvane;

namespace {

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

class TestFileSharing : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void replacedHintCausesNoWarning();
    void nullsInFileHintsAreEmptyPaths_data();
    void nullsInFileHintsAreEmptyPaths();
    void filesArriveWithTheirContentAndMode_data();
    void filesArriveWithTheirContentAndMode();
    void fileListsAreSentAsStringLists();
    void noDescriptorStaysOpen();
    void intentIsSentWithoutAFreeDescriptor();

private:
    void send(const QJsonArray &readFiles, const QJsonArray &writeFiles, const QJsonObject &source, bool asReply);
    QString file(const char *name) const { return directory->filePath(QString::fromUtf8(name)); }

    ServicePeer peer;
    QStringList arrived; ///< The peer's descriptions of the descriptors.
    std::unique_ptr<QTemporaryDir> directory;
    std::optional<MessageLog> log;
};

void TestFileSharing::initTestCase()
{
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestFileSharing::init()
{
    directory = std::make_unique<QTemporaryDir>();
    for (const char *name : {"a", "b"}) {
        QFile made(file(name));
        QVERIFY(made.open(QIODevice::WriteOnly));
        made.write(QByteArray("content of ") + name);
    }
    QCOMPARE(::mkfifo(QFile::encodeName(file("fifo")).constData(), 0600), 0);
    QVERIFY(QFile::link("/dev/full", file("full")));
    QVERIFY(QFile::link("/proc/missing", file("unmakeable"))); // fails for root too
    log.emplace();
}

void TestFileSharing::cleanup()
{
    peer.takeCalls();
    log.reset();
}

/// Sends the files that \a source names with an intent or with a reply, and waits until they arrive.
void TestFileSharing::send(const QJsonArray &readFiles, const QJsonArray &writeFiles, const QJsonObject &source,
                           bool asReply)
{
    if (asReply) {
        auto *dispatcher = RuntimeDispatcher::instance();
        dispatcher->registerIntent("Give", [&source](const QJsonObject &, const auto &reply) { reply(source); });
        dispatcher->registerIntentOutputFiles("Give", QVariant(readFiles.toVariantList()).toStringList(),
                                              QVariant(writeFiles.toVariantList()).toStringList());
        arrived = peer.call("HandleIntent", "('Give', @a{sv} {})").descriptors;
        return;
    }
    QJsonObject hints;
    if (!readFiles.isEmpty())
        hints.insert("readFiles", readFiles);
    if (!writeFiles.isEmpty())
        hints.insert("writeFiles", writeFiles);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", hints, source);
    QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    arrived = peer.descriptors();
}

void TestFileSharing::nullsInFileHintsAreEmptyPaths_data()
{
    QTest::addColumn<QJsonValue>("paths");
    QTest::addColumn<QString>("sent"); // %1 is the key of the list
    QTest::addColumn<bool>("isShared");
    QTest::addColumn<QStringList>("warnings");

    const QStringList unknown("Unknown JSON value type");
    const QString path = "file";
    const QJsonValue null;
    QTest::newRow("null before a path") << QJsonValue(QJsonArray{null, path}) << "'%1': <['', 'file']>" << true
                                        << QStringList();
    QTest::newRow("null behind a path") << QJsonValue(QJsonArray{path, null}) << "'%1': <['file', '']>" << true
                                        << QStringList();
    QTest::newRow("nulls and a number") << QJsonValue(QJsonArray{null, 5, null}) << "'%1': <['', '5', '']>" << false
                                        << QStringList();
    QTest::newRow("only nulls") << QJsonValue(QJsonArray{null, null}) << "" << false << unknown;
    QTest::newRow("null itself") << null << "" << false << unknown;
}

void TestFileSharing::replacedHintCausesNoWarning()
{
    for (const char *hint : {"null", "[null]", R"({"a": null})", R"(["x", {"a": [[1]]}])"}) {
        IntentsInvoker invoker;
        Replies replies(invoker);
        invoker.invoke("OpenURI", fromJson(QByteArray(R"({"readFiles": )") + hint + '}').toObject(),
                       {{"uri", file("a")}});
        QTRY_COMPARE(replies.all, QStringList("{} 0 "));
        QCOMPARE(
            peer.takeCalls(),
            QStringList("InvokeIntent (sa{sv}a{sv}) ('OpenURI', {'readFds': <[handle 0]>, 'readFiles': <['uri']>}, "
                        "{'uri': <'"
                        + file("a") + "'>})"));
        QCOMPARE(log->takeWarnings(), QStringList());
    }
}

void TestFileSharing::nullsInFileHintsAreEmptyPaths()
{
    QFETCH(QJsonValue, paths);
    QFETCH(QString, sent);
    QFETCH(bool, isShared);
    QFETCH(QStringList, warnings);

    for (const bool forReading : {true, false}) {
        const QString key = forReading ? "readFiles" : "writeFiles";
        const QString descriptors = forReading ? "readFds" : "writeFds";
        IntentsInvoker invoker;
        Replies replies(invoker);
        invoker.invoke("X", {{key, paths}}, {{"file", file("a")}});
        QTRY_COMPARE(replies.all, QStringList("{} 0 "));
        const QStringList calls = peer.takeCalls();
        QCOMPARE(calls.size(), 1);
        QString hints = sent.isEmpty() ? QString() : sent.arg(key);
        if (isShared)
            hints.prepend(QString("'%1': <[handle 0]>, ").arg(descriptors));
        hints = hints.isEmpty() ? "@a{sv} {}" : QString("{%1}").arg(hints);
        QVERIFY2(calls.first().startsWith(QString("InvokeIntent (sa{sv}a{sv}) ('X', %1, ").arg(hints)),
                 qPrintable(calls.first()));
        QCOMPARE(log->takeWarnings(), warnings);
    }
}

void TestFileSharing::filesArriveWithTheirContentAndMode_data()
{
    QTest::addColumn<QJsonArray>("readFiles");
    QTest::addColumn<QJsonArray>("writeFiles");
    QTest::addColumn<QStringList>("names"); // in the directory, or a URL; %1 is the directory
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QStringList>("failed");

    const auto strings = [](auto... text) { return QStringList{QString::fromUtf8(text)...}; };
    const QJsonArray all{"files[*]"};
    const QJsonArray last{"files[-1]"};
    QTest::newRow("none") << QJsonArray() << QJsonArray() << strings("a") << QStringList() << QStringList();
    QTest::newRow("for reading") << all << QJsonArray() << strings("a", "b")
                                 << strings("read: content of a", "read: content of b") << QStringList();
    QTest::newRow("for writing") << QJsonArray() << all << strings("a") << strings("read-write: content of a")
                                 << QStringList();
    QTest::newRow("for both, reading first")
        << last << all << strings("a", "b")
        << strings("read: content of b", "read-write: content of a", "read-write: content of b") << QStringList();
    QTest::newRow("local URLs") << all << QJsonArray() << strings("file://%1/a", "http://host/%1/a", "b")
                                << strings("read: content of a", "read: content of b") << QStringList();
    QTest::newRow("missing file, reading")
        << all << QJsonArray() << strings("a", "missing", "b") << strings("read: content of a") << strings("missing");
    QTest::newRow("missing file, writing")
        << QJsonArray() << all << strings("missing") << strings("read-write: ") << QStringList();
    QTest::newRow("directory") << all << last << strings(".", "a") << strings("read-write: content of a")
                               << strings(".");
    QTest::newRow("dangling directory") << QJsonArray() << all << strings("missing/a") << QStringList()
                                        << strings("missing/a");
    QTest::newRow("FIFO") << all << QJsonArray() << strings("fifo", "a")
                          << strings("read: (ESPIPE)", "read: content of a") << QStringList();
    QTest::newRow("full disk") << QJsonArray() << all << strings("full", "a")
                               << strings("read-write: (ENOSPC)", "read-write: content of a")
                               << QStringList(); // the writer gets an error
    QTest::newRow("file that cannot be made") << QJsonArray() << all << strings("a", "unmakeable", "b")
                                              << strings("read-write: content of a") << strings("unmakeable");
    QTest::newRow("URL with U+0000") << all << QJsonArray() << strings("file://%1/a%00.png", "b") << QStringList()
                                     << strings("a\\u0000.png");
}

void TestFileSharing::filesArriveWithTheirContentAndMode()
{
    QFETCH(QJsonArray, readFiles);
    QFETCH(QJsonArray, writeFiles);
    QFETCH(QStringList, names);
    QFETCH(QStringList, expected);
    QFETCH(QStringList, failed);

    QJsonArray files;
    for (const QString &name : names)
        files.append(name.contains(':') ? QString(name).replace("%1", directory->path()) : directory->filePath(name));
    QStringList warnings;
    for (const QString &name : failed)
        warnings << QString("Failed to open file \"%1\"").arg(directory->filePath(name));

    for (const bool asReply : {false, true}) {
        arrived.clear();
        send(readFiles, writeFiles, {{"files", files}}, asReply);
        QCOMPARE(arrived, expected);
        QCOMPARE(log->takeWarnings(), warnings);
        QFile::remove(file("missing"));
    }
    if (!failed.isEmpty())
        QVERIFY(log->lastFunction().contains("exportFiles("));
}

void TestFileSharing::fileListsAreSentAsStringLists()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {{"readFiles", QJsonArray{"f", 5}}, {"writeFiles", "f"}}, {{"f", file("a")}});
    QTRY_COMPARE(peer.calls(),
                 QStringList(QString("InvokeIntent (sa{sv}a{sv}) ('X', {'readFds': <[handle 0]>, 'readFiles': <['f', "
                                     "'5']>, 'writeFds': <[handle 1]>, 'writeFiles': <['f']>}, {'f': <'%1'>})")
                                 .arg(file("a"))));
    QCOMPARE(peer.descriptors(), QStringList({"read: content of a", "read-write: content of a"}));
    QTRY_COMPARE(replies.all.size(), 1);
}

void TestFileSharing::noDescriptorStaysOpen()
{
    const QJsonArray all{"files[*]"};
    const QJsonObject source{{"files", QJsonArray{file("a"), file("b")}}};
    send(all, all, source, false);
    send(all, all, source, true);
    QVERIFY(peer.roundTrip());
    const int before = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        send(all, all, source, false);
        send(all, all, source, true);
    }
    QVERIFY(peer.roundTrip());
    QTRY_VERIFY(openDescriptors() <= before);
}

void TestFileSharing::intentIsSentWithoutAFreeDescriptor()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    rlimit original = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &original), 0);
    std::vector<int> taken;
    const rlimit tight{128, original.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    for (int fd = ::dup(0); fd >= 0; fd = ::dup(0))
        taken.push_back(fd);
    for (int i = 0; i < 7; ++i) { // descriptors for three files and for their duplicates in the message
        ::close(taken.back());
        taken.pop_back();
    }
    invoker.invoke("X", {{"readFiles", QJsonArray{"files[*]"}}},
                   {{"files", QJsonArray{file("a"), file("b"), file("a"), file("b"), file("a")}}});
    for (const int fd : taken)
        ::close(fd);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &original), 0);

    QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    QCOMPARE(peer.descriptors(), QStringList({"read: content of a", "read: content of b", "read: content of a"}));
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to open file \"%1\"").arg(file("b"))));
}

QTEST_GUILESS_MAIN(TestFileSharing)
#include "tst_file_sharing.moc"
