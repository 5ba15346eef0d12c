// SPDX-License-Identifier: BSD-3-Clause
// The description of a task: setters, getters, and the arguments of Start.
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>

#include <message_log.h>
#include <outcomes.h>
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtDBus/QDBusVariant>
#include <QtTest/QtTest>

#include <optional>
#include <type_traits>

using namespace Corvane;

struct Unregistered
{
};
Q_DECLARE_METATYPE(Unregistered)

using Describe = std::function<void(Task &)>;
Q_DECLARE_METATYPE(Describe)

namespace {

const QString Sync = QStringLiteral("sync");

} // namespace

class TestTaskDescription : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void newTaskIsEmptyAndSendsNothing();
    void gettersReturnTheSetValues();
    void startTimeKeepsTheSecond();
    void enumerationsHaveFixedTypes();
    void socketPathNamesApplicationAndTask_data();
    void socketPathNamesApplicationAndTask();
    void startSendsTheDescription_data();
    void startSendsTheDescription();
    void startSendsTheCurrentDescription();
    void constructorReadsTheApplicationId();
    void valuesThatCannotBeMarshalledAreOmitted_data();
    void valuesThatCannotBeMarshalledAreOmitted();
    void descriptionsOverTheLimitsAreNotSent_data();
    void descriptionsOverTheLimitsAreNotSent();
    void filesUpToTheLimitAreSent_data();
    void filesUpToTheLimitAreSent();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestTaskDescription::initTestCase()
{
    const Task first("first"); // the first task of a process fetches all states
    QTRY_COMPARE(peer.calls(), QStringList("GetAll () ()"));
}

void TestTaskDescription::init()
{
    qputenv("HALVIR_APP_ID", "demo");
    log.emplace();
    peer.takeCalls();
}

void TestTaskDescription::cleanup()
{
    log.reset();
}

void TestTaskDescription::newTaskIsEmptyAndSendsNothing()
{
    QObject parent;
    const auto *task = new Task(Sync, &parent);
    QCOMPARE(task->parent(), &parent);
    QCOMPARE(task->taskId(), Sync);
    QCOMPARE(task->state(), Task::Unknown);
    QCOMPARE(task->arguments(), QStringList());
    QVERIFY(!task->startTime().isValid());
    QVERIFY(!task->hasIpcSocket());
    QVERIFY(!task->schedule().startDate().isValid());
    QCOMPARE(task->schedule().hours(), QList<int>());
    QCOMPARE(task->priority(), 0);
    QVERIFY(!task->autostart());
    QCOMPARE(task->interval(), 0);
    QCOMPARE(task->maximumRunningTime(), 0);
    QCOMPARE(task->startDelay(), 0);
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList()); // the first task of the process has fetched the states
}

void TestTaskDescription::gettersReturnTheSetValues()
{
    Task task(Sync);
    QCOMPARE(&task.withArguments({"--all", QString()})
                  .withIpcSocket(true)
                  .withSchedule(Schedule().onHours({8}))
                  .withPriority(-5)
                  .withAutostart(true)
                  .withInterval(30)
                  .withInterval(60)
                  .withMaximumRunningTime(7)
                  .withStartDelay(9)
                  .withStartTime({}),
             &task);
    QCOMPARE(task.arguments(), QStringList({"--all", QString()}));
    QVERIFY(task.hasIpcSocket());
    QCOMPARE(task.schedule().hours(), QList<int>({8}));
    QCOMPARE(task.priority(), -5);
    QVERIFY(task.autostart());
    QCOMPARE(task.interval(), 60);
    QCOMPARE(task.maximumRunningTime(), 7);
    QCOMPARE(task.startDelay(), 9);
    QVERIFY(!task.startTime().isValid());

    task.withArguments(task.arguments()).withIpcSocket(false).withAutostart(false);
    QCOMPARE(task.arguments(), QStringList({"--all", QString()}));
    QVERIFY(!task.hasIpcSocket());
    QVERIFY(!task.autostart());
}

void TestTaskDescription::startTimeKeepsTheSecond()
{
    Task task(Sync);
    const QDate date(2030, 6, 30);
    QCOMPARE(task.withStartTime(QDateTime(date, QTime(1, 2, 3, 999), Qt::UTC)).startTime(),
             QDateTime(date, QTime(1, 2, 3), Qt::UTC));
    QCOMPARE(task.withStartTime(QDateTime(date, QTime(1, 2, 3))).startTime(), QDateTime(date, QTime(1, 2, 3)));
}

void TestTaskDescription::enumerationsHaveFixedTypes()
{
    static_assert(std::is_same_v<std::underlying_type_t<Task::State>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<Task::StopFlag>, int>);
    QCOMPARE(int(Task::Unknown), 0);
    QCOMPARE(int(Task::Running), 1);
    QCOMPARE(int(Task::Stopped), 2);
    QCOMPARE(int(Task::Waiting), 3);
    QCOMPARE(int(Task::Force), 1);
    const QMetaObject &meta = Task::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 1);
    QCOMPARE(meta.method(meta.methodOffset()).methodSignature(), QByteArray("stateChanged(Task::State)"));
    QCOMPARE(meta.enumeratorCount() - meta.enumeratorOffset(), 0);
}

void TestTaskDescription::socketPathNamesApplicationAndTask_data()
{
    QTest::addColumn<QByteArray>("application");
    QTest::addColumn<QString>("task");
    QTest::addColumn<QString>("path");

    QTest::newRow("usual") << QByteArray("myapp") << "sync"
                           << "applications/myapp/sync.socket";
    QTest::newRow("space") << QByteArray("myapp") << "a b"
                           << "applications/myapp/a b.socket";
    QTest::newRow("directory above") << QByteArray("myapp") << "../x"
                                     << "applications/myapp/../x.socket";
    QTest::newRow("no application") << QByteArray() << "sync"
                                    << "applications//sync.socket";
    QTest::newRow("placeholder in the application") << QByteArray("%3x") << "sync"
                                                    << "applications/syncx/sync.socket";
    QTest::newRow("placeholder in the task") << QByteArray("myapp") << "%1"
                                             << "applications/myapp/%1.socket";
}

void TestTaskDescription::socketPathNamesApplicationAndTask()
{
    QFETCH(QByteArray, application);
    QFETCH(QString, task);
    QFETCH(QString, path);

    const QTemporaryDir runtime;
    QVERIFY(QFile::setPermissions(runtime.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    qputenv("HALVIR_APP_ID", application);
    delete RuntimeDispatcher::instance(); // the next one reads the environment
    RuntimeDispatcher::instance();
    qputenv("HALVIR_APP_ID", "other"); // only the qualified name depends on it
    QCOMPARE(Task(task).socketPath(), runtime.filePath(path));
    delete RuntimeDispatcher::instance();
}

void TestTaskDescription::startSendsTheDescription_data()
{
    QTest::addColumn<Describe>("describe");
    QTest::addColumn<QString>("sent"); // the arguments after the name

    const auto row = [](const char *name, const Describe &describe, const char *sent) {
        QTest::newRow(name) << describe << QString::fromLatin1(sent);
    };
    const QDateTime time(QDate(2030, 6, 30), QTime(1, 2, 3, 4), Qt::UTC);
    row(
        "nothing", [](Task &) {}, "@as [], @a{sv} {}");
    row(
        "arguments",
        [](Task &task) {
            task.withArguments({"--all", QString()});
        },
        "['--all', ''], @a{sv} {}");
    row(
        "start time", [time](Task &task) { task.withStartTime(time); },
        "@as [], {'StartTime': <'2030-06-30T01:02:03Z'>}");
    row(
        "start time with an offset", [time](Task &task) { task.withStartTime(time.toOffsetFromUtc(5400)); },
        "@as [], {'StartTime': <'2030-06-30T02:32:03+01:30'>}");
    row(
        "local start time", [time](Task &task) { task.withStartTime(QDateTime(time.date(), time.time())); },
        "@as [], {'StartTime': <'2030-06-30T01:02:03'>}");
    row(
        "invalid start time", [](Task &task) { task.withStartTime({}); }, "@as [], {'StartTime': <''>}");
    row(
        "socket", [](Task &task) { task.withIpcSocket(true); }, "@as [], {'CreateIPCSocket': <true>}");
    row(
        "no socket", [](Task &task) { task.withIpcSocket(false); }, "@as [], {'CreateIPCSocket': <false>}");
    row(
        "priority", [](Task &task) { task.withPriority(-2147483647 - 1); }, "@as [], {'Priority': <-2147483648>}");
    row(
        "autostart", [](Task &task) { task.withAutostart(true); }, "@as [], {'Autostart': <true>}");
    row(
        "interval", [](Task &task) { task.withInterval(30).withInterval(60); }, "@as [], {'Interval': <60>}");
    row(
        "running time", [](Task &task) { task.withMaximumRunningTime(2147483647); },
        "@as [], {'RunningTime': <2147483647>}");
    row(
        "start delay", [](Task &task) { task.withStartDelay(0); }, "@as [], {'StartDelay': <0>}");
    row(
        "empty schedule", [](Task &task) { task.withSchedule({}); }, "@as [], {'Schedule': <@a{sv} {}>}");
    row(
        "schedule",
        [time](Task &task) {
            task.withSchedule(
                Schedule().sinceDate(time).tillDate(time).onMonths({1, 13}).onWeekDays({}).onHours({-1}).onMinutes(
                    {0, 0}));
        },
        "@as [], {'Schedule': <{'EndDate': <'2030-06-30T01:02:03Z'>, 'Hours': <[-1]>, 'Minutes': <[0, 0]>, 'Months': "
        "<[1, 13]>, 'StartDate': <'2030-06-30T01:02:03Z'>, 'WeekDays': <@ai []>}>}");
    row(
        "schedule of a map",
        [](Task &task) {
            task.withSchedule(Schedule({{"a", "text"},
                                        {"b", QVariantList{1, "x"}},
                                        {"c", QVariantMap{{"d", 1.5}}},
                                        {"e", QVariantHash{{"f", true}}}}));
        },
        "@as [], {'Schedule': <{'a': <'text'>, 'b': <[<1>, <'x'>]>, 'c': <{'d': <1.5>}>, 'e': <{'f': <true>}>}>}");
    row(
        "schedule of other types",
        [](Task &task) {
            task.withSchedule(
                Schedule({{"a", qlonglong(-5)}, {"b", QVariant::fromValue(ushort(7))}, {"c", QByteArray("ab")}}));
        },
        "@as [], {'Schedule': <{'a': <int64 -5>, 'b': <uint16 7>, 'c': <[byte 0x61, 0x62]>}>}");
    row(
        "everything",
        [](Task &task) {
            task.withStartDelay(1).withMaximumRunningTime(2).withInterval(3).withAutostart(true).withPriority(4);
            task.withSchedule({}).withIpcSocket(true).withStartTime({}).withArguments({"a"});
        },
        "['a'], {'Autostart': <true>, 'CreateIPCSocket': <true>, 'Interval': <3>, 'Priority': <4>, 'RunningTime': <2>, "
        "'Schedule': <@a{sv} {}>, 'StartDelay': <1>, 'StartTime': <''>}");
}

void TestTaskDescription::startSendsTheDescription()
{
    QFETCH(Describe, describe);
    QFETCH(QString, sent);

    Task task(Sync);
    describe(task);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList("0 "));
    QCOMPARE(peer.takeCalls(), QStringList(QString("Start (sasa{sv}) ('demo.task_sync', %1)").arg(sent)));
}

void TestTaskDescription::startSendsTheCurrentDescription()
{
    Task task(Sync);
    task.withInterval(1).start();
    task.withInterval(2).withPriority(3).start();
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.takeCalls(),
             QStringList({"Start (sasa{sv}) ('demo.task_sync', @as [], {'Interval': <1>})",
                          "Start (sasa{sv}) ('demo.task_sync', @as [], {'Interval': <2>, 'Priority': <3>})"}));
}

void TestTaskDescription::constructorReadsTheApplicationId()
{
    qputenv("HALVIR_APP_ID", "\xc5\xbe.x");
    Task task(QString::fromUtf8("ť a"));
    qunsetenv("HALVIR_APP_ID");
    Task nameless(Sync);
    task.stop();
    nameless.stop();
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.takeCalls(),
             QStringList({QString::fromUtf8("Stop (sb) ('ž.x.task_ť a', false)"), "Stop (sb) ('.task_sync', false)"}));
}

void TestTaskDescription::valuesThatCannotBeMarshalledAreOmitted_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("sent"); // the received form of {"x": value}
    QTest::addColumn<QStringList>("parts");

    const QString nothing = "@a{sv} {}";
    QTest::newRow("invalid") << QVariant() << nothing << QStringList("QVariant(Invalid)");
    QTest::newRow("null") << QVariant::fromValue(nullptr) << nothing
                          << QStringList("QVariant(std::nullptr_t, (nullptr))");
    QTest::newRow("unknown type") << QVariant::fromValue(Unregistered()) << nothing
                                  << QStringList("QVariant(Unregistered, )");
    QTest::newRow("in a list") << QVariant(QVariantList{1, QVariant(), 2}) << "{'x': <[<1>, <2>]>}"
                               << QStringList("QVariant(Invalid)");
    QTest::newRow("in a map") << QVariant(QVariantMap{{"a", QVariant()}, {"b", 2}}) << "{'x': <{'b': <2>}>}"
                              << QStringList("QVariant(Invalid)");
    QTest::newRow("all of a list") << QVariant(QVariantList{QVariant(), QVariant()}) << "{'x': <@av []>}"
                                   << QStringList({"QVariant(Invalid)", "QVariant(Invalid)"});
    QTest::newRow("in a variant") << QVariant::fromValue(QDBusVariant(QVariant())) << nothing
                                  << QStringList("QVariant(Invalid)");
}

void TestTaskDescription::valuesThatCannotBeMarshalledAreOmitted()
{
    QFETCH(QVariant, value);
    QFETCH(QString, sent);
    QFETCH(QStringList, parts);

    Task task(Sync);
    task.withSchedule(Schedule({{"x", value}})).start();
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.takeCalls(),
             QStringList(QString("Start (sasa{sv}) ('demo.task_sync', @as [], {'Schedule': <%1>})").arg(sent)));
    for (QString &part : parts)
        part.prepend("Value without a form on D-Bus: ");
    QCOMPARE(log->takeWarnings(), parts);
}

void TestTaskDescription::descriptionsOverTheLimitsAreNotSent_data()
{
    QTest::addColumn<QString>("taskId");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("problem");

    const QString nul = QString("a") + QChar(0);
    const QString hasNul = "A message cannot hold a text with U+0000";
    const QString tooLarge = "A message cannot hold an array or object of more than 64 MiB";
    const QString large(64 * 1024 * 1024, 'x');
    QVariant deep(1);
    for (int i = 0; i < 22; ++i)
        deep = QVariantMap{{"n", deep}};
    QList<int> numbers;
    numbers.reserve(17 * 1024 * 1024);
    while (numbers.size() < 17 * 1024 * 1024)
        numbers.append(1);

    QTest::newRow("U+0000 in the id") << nul << QStringList() << QVariant(1) << hasNul;
    QTest::newRow("U+0000 in an argument") << Sync << QStringList({"a", nul}) << QVariant(1) << hasNul;
    QTest::newRow("U+0000 in a value") << Sync << QStringList() << QVariant(nul) << hasNul;
    QTest::newRow("64 MiB of arguments") << Sync << QStringList(large) << QVariant(1) << tooLarge;
    QTest::newRow("64 MiB of text") << Sync << QStringList() << QVariant(large) << tooLarge;
    QTest::newRow("64 MiB of bytes") << Sync << QStringList() << QVariant(large.toLatin1()) << tooLarge;
    QTest::newRow("64 MiB of numbers") << Sync << QStringList() << QVariant::fromValue(numbers) << tooLarge;
    QVariantMap files;
    for (int i = 0; i <= CORVANE_MAX_DESCRIPTORS; ++i)
        files.insert(QString::number(i), QVariant::fromValue(QDBusUnixFileDescriptor(0)));
    QJsonValue deepJson(1);
    for (int i = 0; i < 22; ++i)
        deepJson = QJsonObject{{"n", deepJson}};
    QVariant deepVariant(1);
    for (int i = 0; i < 62; ++i)
        deepVariant = QVariant::fromValue(QDBusVariant(deepVariant));

    QTest::newRow("too many files")
        << Sync << QStringList() << QVariant(files)
        << QString("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS);
    QTest::newRow("JSON nested too deep")
        << Sync << QStringList() << QVariant(deepJson.toObject()) << "A message cannot nest more than 63 containers";
    QTest::newRow("variants nested too deep")
        << Sync << QStringList() << deepVariant << "A message cannot nest more than 63 containers";
    QVariant bottomless(1);
    QVariant hashes(1);
    for (int i = 0; i < 30000; ++i) {
        bottomless = QVariantList{bottomless};
        hashes = QVariantHash{{"n", hashes}};
    }
    QTest::newRow("lists nested deeper than a stack is high")
        << Sync << QStringList() << bottomless << "A message cannot nest more than 63 containers";
    QTest::newRow("hashes nested deeper than a stack is high")
        << Sync << QStringList() << hashes << "A message cannot nest more than 63 containers";
    QList<qulonglong> largeNumbers;
    largeNumbers.reserve(numbers.size() / 2);
    while (largeNumbers.size() < numbers.size() / 2)
        largeNumbers.append(1);
    QTest::newRow("64 MiB of large numbers") << Sync << QStringList() << QVariant::fromValue(largeNumbers) << tooLarge;
    QTest::newRow("128 MiB of arguments and bytes")
        << Sync << QStringList(large.left((64 << 20) - 100)) << QVariant(large.left((64 << 20) - 100).toLatin1())
        << "A message cannot be longer than 128 MiB";
    QTest::newRow("nested too deep") << Sync << QStringList() << deep
                                     << "A message cannot nest more than 63 containers";
}

void TestTaskDescription::descriptionsOverTheLimitsAreNotSent()
{
    QFETCH(QString, taskId);
    QFETCH(QStringList, arguments);
    QFETCH(QVariant, value);
    QFETCH(QString, problem);

    Task task(taskId);
    task.withArguments(arguments).withSchedule(Schedule({{"x", value}}));
    Outcomes outcomes;
    task.start(outcomes.callback());
    QCOMPARE(outcomes.all, QStringList()); // the callback never runs within the call
    QTRY_COMPARE(outcomes.all, QStringList("1 " + problem));
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());

    if (taskId != Sync) {
        task.stop({}, outcomes.callback());
        QTRY_COMPARE(outcomes.all.size(), 2);
        QCOMPARE(outcomes.all.last(), "1 " + problem);
        QVERIFY(peer.roundTrip());
        QCOMPARE(peer.calls(), QStringList());
    }
}

void TestTaskDescription::filesUpToTheLimitAreSent_data()
{
    QTest::addColumn<int>("count");

    for (const int count : {CORVANE_MAX_DESCRIPTORS - 1, CORVANE_MAX_DESCRIPTORS})
        QTest::addRow("%d", count) << count;
}

void TestTaskDescription::filesUpToTheLimitAreSent()
{
    QFETCH(int, count);

    QFile null("/dev/null");
    QVERIFY(null.open(QIODevice::ReadOnly));
    QVariantMap files;
    for (int i = 0; i < count; ++i)
        files.insert(QString::number(i), QVariant::fromValue(QDBusUnixFileDescriptor(null.handle())));
    Task task(Sync);
    task.withSchedule(Schedule(files));
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList("0 "));
    QCOMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.descriptors(), QVector<QString>(count, "read: ").toList());
}

QTEST_GUILESS_MAIN(TestTaskDescription)
#include "tst_task_description.moc"
