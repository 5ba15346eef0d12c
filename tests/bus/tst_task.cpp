// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>
#include <Corvane/tasks_interface_p.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtTest/QtTest>

#include <cstddef>
#include <memory>
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

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Object = QStringLiteral("Tasks1");
const QString Interface = QStringLiteral(CORVANE_SERVICE_ROOT ".Tasks1");
const QString StateChanged = QStringLiteral("StateChanged");
const QString GetAll = QStringLiteral("GetAll");
const QString Sync = QStringLiteral("sync");

/// What the outcomes of calls were, each as its code and message.
class Outcomes
{
public:
    auto callback()
    {
        return
            [this](const Error &error) { all << QStringLiteral("%1 %2").arg(int(error.code())).arg(error.message()); };
    }

    QStringList all;
};

} // namespace

class TestTask : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void freshTaskSaysNothing();
    void whatIsSetIsRead();
    void startTimeKeepsTheSecond();
    void enumerationsHaveFixedTypes();
    void socketPathNamesApplicationAndTask_data();
    void socketPathNamesApplicationAndTask();

    void startSendsTheDescription_data();
    void startSendsTheDescription();
    void descriptionIsSentAsItIsThen();
    void qualifiedNameIsMadeOnce();
    void valuesWithoutAFormAreLeftOut_data();
    void valuesWithoutAFormAreLeftOut();
    void hugeDescriptionsAreRefused_data();
    void hugeDescriptionsAreRefused();
    void passesAsManyFilesAsTheBusDoes_data();
    void passesAsManyFilesAsTheBusDoes();
    void stopSendsTheForceFlagAlone_data();
    void stopSendsTheForceFlagAlone();

    void outcomesAreDelivered_data();
    void outcomesAreDelivered();
    void everyCallHasItsOwnOutcome();
    void emptyCallbacksAreAllowed();
    void deletedTaskDeliversNothing();
    void taskMayBeDeletedInItsCallback();
    void serviceThatVanishesFailsItsCalls();

    void statesAreMapped_data();
    void statesAreMapped();
    void sameStateIsToldOnce();
    void otherTasksAreIgnored();
    void everyMatchCounts();
    void newTaskKnowsItsState();
    void newerStatesWin();
    void taskMayBeDeletedWhenItsStateChanges();
    void announcementsOfAnotherShapeAreIgnored_data();
    void announcementsOfAnotherShapeAreIgnored();
    void otherSignalsAreIgnored_data();
    void otherSignalsAreIgnored();
    void strangersAreNotHeard_data();
    void strangersAreNotHeard();
    void anotherServiceIsHeardAfterTheFirst();

    void firstStatesAreRead_data();
    void firstStatesAreRead();
    void failedReadingIsLogged_data();
    void failedReadingIsLogged();

private:
    void announce(const QString &list)
    {
        peer.emitSignal(Object, Interface, StateChanged, QStringLiteral("(%1,)").arg(list));
    }
    static QString one(const QString &id, quint32 code)
    {
        return QStringLiteral("[('%1', uint32 %2, @a{sv} {})]").arg(id).arg(code);
    }
    QVector<int> watch(Task &task)
    {
        connect(&task, &Task::stateChanged, this, [this](Task::State state) { states << int(state); });
        return {};
    }

    ServicePeer peer;
    QVector<int> states;
    std::optional<MessageLog> log;
};

void TestTask::initTestCase()
{
    qputenv("HALVIR_APP_ID", "demo");
    peer.answer(QStringLiteral("({'Other': <1>, 'State': <[('early', uint32 1, {'x': <1>})]>},)"), GetAll);
    Task early(QStringLiteral("early"));
    watch(early);
    QCOMPARE(early.state(), Task::Unknown); // nothing is waited for
    QTRY_COMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(early.state(), Task::Running);
    QCOMPARE(peer.takeCalls(), QStringList(QStringLiteral("GetAll () ()")));
}

void TestTask::init()
{
    qputenv("HALVIR_APP_ID", "demo");
    log.emplace();
    states.clear();
    peer.takeCalls();
}

void TestTask::cleanup()
{
    log.reset();
    peer.answer({}, QStringLiteral("Start"));
    peer.answer({}, QStringLiteral("Stop"));
}

void TestTask::freshTaskSaysNothing()
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
    QCOMPARE(peer.calls(), QStringList()); // and asks nobody, for another has asked before
}

void TestTask::whatIsSetIsRead()
{
    Task task(Sync);
    QCOMPARE(&task.withArguments({QStringLiteral("--all"), QString()})
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
    QCOMPARE(task.arguments(), QStringList({QStringLiteral("--all"), QString()}));
    QVERIFY(task.hasIpcSocket());
    QCOMPARE(task.schedule().hours(), QList<int>({8}));
    QCOMPARE(task.priority(), -5);
    QVERIFY(task.autostart());
    QCOMPARE(task.interval(), 60);
    QCOMPARE(task.maximumRunningTime(), 7);
    QCOMPARE(task.startDelay(), 9);
    QVERIFY(!task.startTime().isValid());

    task.withArguments(task.arguments()).withIpcSocket(false).withAutostart(false);
    QCOMPARE(task.arguments(), QStringList({QStringLiteral("--all"), QString()}));
    QVERIFY(!task.hasIpcSocket());
    QVERIFY(!task.autostart());
}

void TestTask::startTimeKeepsTheSecond()
{
    Task task(Sync);
    const QDate date(2030, 6, 30);
    QCOMPARE(task.withStartTime(QDateTime(date, QTime(1, 2, 3, 999), Qt::UTC)).startTime(),
             QDateTime(date, QTime(1, 2, 3), Qt::UTC));
    QCOMPARE(task.withStartTime(QDateTime(date, QTime(1, 2, 3))).startTime(), QDateTime(date, QTime(1, 2, 3)));
}

void TestTask::enumerationsHaveFixedTypes()
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

void TestTask::socketPathNamesApplicationAndTask_data()
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

void TestTask::socketPathNamesApplicationAndTask()
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
    qputenv("HALVIR_APP_ID", "other"); // is what the qualified name alone goes by
    QCOMPARE(Task(task).socketPath(), runtime.filePath(path));
    delete RuntimeDispatcher::instance();
}

void TestTask::startSendsTheDescription_data()
{
    QTest::addColumn<Describe>("describe");
    QTest::addColumn<QString>("sent"); // behind the name

    const auto row = [](const char *name, const Describe &describe, const char *sent) {
        QTest::newRow(name) << describe << QString::fromLatin1(sent);
    };
    const QDateTime time(QDate(2030, 6, 30), QTime(1, 2, 3, 4), Qt::UTC);
    row(
        "nothing", [](Task &) {}, "@as [], @a{sv} {}");
    row(
        "arguments",
        [](Task &task) {
            task.withArguments({QStringLiteral("--all"), QString()});
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
            task.withSchedule(Schedule({{QStringLiteral("a"), QStringLiteral("text")},
                                        {QStringLiteral("b"), QVariantList{1, QStringLiteral("x")}},
                                        {QStringLiteral("c"), QVariantMap{{QStringLiteral("d"), 1.5}}},
                                        {QStringLiteral("e"), QVariantHash{{QStringLiteral("f"), true}}}}));
        },
        "@as [], {'Schedule': <{'a': <'text'>, 'b': <[<1>, <'x'>]>, 'c': <{'d': <1.5>}>, 'e': <{'f': <true>}>}>}");
    row(
        "schedule of other types",
        [](Task &task) {
            task.withSchedule(Schedule({{QStringLiteral("a"), qlonglong(-5)},
                                        {QStringLiteral("b"), QVariant::fromValue(ushort(7))},
                                        {QStringLiteral("c"), QByteArray("ab")}}));
        },
        "@as [], {'Schedule': <{'a': <int64 -5>, 'b': <uint16 7>, 'c': <[byte 0x61, 0x62]>}>}");
    row(
        "everything",
        [](Task &task) {
            task.withStartDelay(1).withMaximumRunningTime(2).withInterval(3).withAutostart(true).withPriority(4);
            task.withSchedule({}).withIpcSocket(true).withStartTime({}).withArguments({QStringLiteral("a")});
        },
        "['a'], {'Autostart': <true>, 'CreateIPCSocket': <true>, 'Interval': <3>, 'Priority': <4>, 'RunningTime': <2>, "
        "'Schedule': <@a{sv} {}>, 'StartDelay': <1>, 'StartTime': <''>}");
}

void TestTask::startSendsTheDescription()
{
    QFETCH(Describe, describe);
    QFETCH(QString, sent);

    Task task(Sync);
    describe(task);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList(QStringLiteral("0 ")));
    QCOMPARE(peer.takeCalls(), QStringList(QStringLiteral("Start (sasa{sv}) ('demo.task_sync', %1)").arg(sent)));
}

void TestTask::descriptionIsSentAsItIsThen()
{
    Task task(Sync);
    task.withInterval(1).start();
    task.withInterval(2).withPriority(3).start();
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.takeCalls(),
             QStringList({QStringLiteral("Start (sasa{sv}) ('demo.task_sync', @as [], {'Interval': <1>})"),
                          QStringLiteral("Start (sasa{sv}) ('demo.task_sync', @as [], {'Interval': <2>, 'Priority': "
                                         "<3>})")}));
}

void TestTask::qualifiedNameIsMadeOnce()
{
    qputenv("HALVIR_APP_ID", "\xc5\xbe.x");
    Task task(QString::fromUtf8("ť a"));
    qunsetenv("HALVIR_APP_ID");
    Task nameless(Sync);
    task.stop();
    nameless.stop();
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.takeCalls(),
             QStringList({QString::fromUtf8("Stop (sb) ('ž.x.task_ť a', false)"),
                          QStringLiteral("Stop (sb) ('.task_sync', false)")}));
}

void TestTask::valuesWithoutAFormAreLeftOut_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("sent"); // of {"x": value}
    QTest::addColumn<QStringList>("parts");

    const QString nothing = QStringLiteral("@a{sv} {}");
    QTest::newRow("invalid") << QVariant() << nothing << QStringList(QStringLiteral("QVariant(Invalid)"));
    QTest::newRow("null") << QVariant::fromValue(nullptr) << nothing
                          << QStringList(QStringLiteral("QVariant(std::nullptr_t, (nullptr))"));
    QTest::newRow("unknown type") << QVariant::fromValue(Unregistered()) << nothing
                                  << QStringList(QStringLiteral("QVariant(Unregistered, )"));
    QTest::newRow("in a list") << QVariant(QVariantList{1, QVariant(), 2}) << "{'x': <[<1>, <2>]>}"
                               << QStringList(QStringLiteral("QVariant(Invalid)"));
    QTest::newRow("in a map") << QVariant(QVariantMap{{QStringLiteral("a"), QVariant()}, {QStringLiteral("b"), 2}})
                              << "{'x': <{'b': <2>}>}" << QStringList(QStringLiteral("QVariant(Invalid)"));
    QTest::newRow("all of a list") << QVariant(QVariantList{QVariant(), QVariant()}) << "{'x': <@av []>}"
                                   << QStringList(
                                          {QStringLiteral("QVariant(Invalid)"), QStringLiteral("QVariant(Invalid)")});
    QTest::newRow("in a variant") << QVariant::fromValue(QDBusVariant(QVariant())) << nothing
                                  << QStringList(QStringLiteral("QVariant(Invalid)"));
}

void TestTask::valuesWithoutAFormAreLeftOut()
{
    QFETCH(QVariant, value);
    QFETCH(QString, sent);
    QFETCH(QStringList, parts);

    Task task(Sync);
    task.withSchedule(Schedule({{QStringLiteral("x"), value}})).start();
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.takeCalls(),
             QStringList(QStringLiteral("Start (sasa{sv}) ('demo.task_sync', @as [], {'Schedule': <%1>})").arg(sent)));
    for (QString &part : parts)
        part.prepend(QStringLiteral("Value without a form on D-Bus: "));
    QCOMPARE(log->takeWarnings(), parts);
}

void TestTask::hugeDescriptionsAreRefused_data()
{
    QTest::addColumn<QString>("taskId");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("problem");

    const QString nul = QStringLiteral("a") + QChar(0);
    const QString hasNul = QStringLiteral("A message cannot hold a text with U+0000");
    const QString tooLarge = QStringLiteral("A message cannot hold an array or object of more than 64 MiB");
    const QString large(64 * 1024 * 1024, QLatin1Char('x'));
    QVariant deep(1);
    for (int i = 0; i < 22; ++i)
        deep = QVariantMap{{QStringLiteral("n"), deep}};
    QList<int> numbers;
    numbers.reserve(17 * 1024 * 1024);
    while (numbers.size() < 17 * 1024 * 1024)
        numbers.append(1);

    QTest::newRow("U+0000 in the id") << nul << QStringList() << QVariant(1) << hasNul;
    QTest::newRow("U+0000 in an argument") << Sync << QStringList({QStringLiteral("a"), nul}) << QVariant(1) << hasNul;
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
        deepJson = QJsonObject{{QStringLiteral("n"), deepJson}};
    QVariant deepVariant(1);
    for (int i = 0; i < 62; ++i)
        deepVariant = QVariant::fromValue(QDBusVariant(deepVariant));

    QTest::newRow("too many files")
        << Sync << QStringList() << QVariant(files)
        << QStringLiteral("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS);
    QTest::newRow("JSON nested too deep")
        << Sync << QStringList() << QVariant(deepJson.toObject()) << "A message cannot nest more than 64 containers";
    QTest::newRow("variants nested too deep")
        << Sync << QStringList() << deepVariant << "A message cannot nest more than 64 containers";
    QVariant bottomless(1);
    QVariant hashes(1);
    for (int i = 0; i < 30000; ++i) {
        bottomless = QVariantList{bottomless};
        hashes = QVariantHash{{QStringLiteral("n"), hashes}};
    }
    QTest::newRow("lists nested deeper than a stack is high")
        << Sync << QStringList() << bottomless << "A message cannot nest more than 64 containers";
    QTest::newRow("hashes nested deeper than a stack is high")
        << Sync << QStringList() << hashes << "A message cannot nest more than 64 containers";
    QList<qulonglong> largeNumbers;
    largeNumbers.reserve(numbers.size() / 2);
    while (largeNumbers.size() < numbers.size() / 2)
        largeNumbers.append(1);
    QTest::newRow("64 MiB of large numbers") << Sync << QStringList() << QVariant::fromValue(largeNumbers) << tooLarge;
    QTest::newRow("128 MiB of arguments and bytes")
        << Sync << QStringList(large.left((64 << 20) - 100)) << QVariant(large.left((64 << 20) - 100).toLatin1())
        << QStringLiteral("A message cannot be longer than 128 MiB");
    QTest::newRow("nested too deep") << Sync << QStringList() << deep
                                     << "A message cannot nest more than 64 containers";
}

void TestTask::hugeDescriptionsAreRefused()
{
    QFETCH(QString, taskId);
    QFETCH(QStringList, arguments);
    QFETCH(QVariant, value);
    QFETCH(QString, problem);

    Task task(taskId);
    task.withArguments(arguments).withSchedule(Schedule({{QStringLiteral("x"), value}}));
    Outcomes outcomes;
    task.start(outcomes.callback());
    QCOMPARE(outcomes.all, QStringList()); // never from inside the call
    QTRY_COMPARE(outcomes.all, QStringList(QStringLiteral("1 ") + problem));
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());

    if (taskId != Sync) {
        task.stop({}, outcomes.callback());
        QTRY_COMPARE(outcomes.all.size(), 2);
        QCOMPARE(outcomes.all.last(), QStringLiteral("1 ") + problem);
        QVERIFY(peer.roundTrip());
        QCOMPARE(peer.calls(), QStringList());
    }
}

void TestTask::passesAsManyFilesAsTheBusDoes_data()
{
    QTest::addColumn<int>("count");

    for (const int count : {CORVANE_MAX_DESCRIPTORS - 1, CORVANE_MAX_DESCRIPTORS})
        QTest::addRow("%d", count) << count;
}

void TestTask::passesAsManyFilesAsTheBusDoes()
{
    QFETCH(int, count);

    QFile null(QStringLiteral("/dev/null"));
    QVERIFY(null.open(QIODevice::ReadOnly));
    QVariantMap files;
    for (int i = 0; i < count; ++i)
        files.insert(QString::number(i), QVariant::fromValue(QDBusUnixFileDescriptor(null.handle())));
    Task task(Sync);
    task.withSchedule(Schedule(files));
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList(QStringLiteral("0 ")));
    QCOMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.descriptors(), QVector<QString>(count, QStringLiteral("read: ")).toList());
}

void TestTask::stopSendsTheForceFlagAlone_data()
{
    QTest::addColumn<int>("flags");
    QTest::addColumn<QString>("sent");

    QTest::newRow("none") << 0x0 << "Stop (sb) ('demo.task_sync', false)";
    QTest::newRow("force") << 0x1 << "Stop (sb) ('demo.task_sync', true)";
    QTest::newRow("unknown bits") << 0x2 << "Stop (sb) ('demo.task_sync', false)";
    QTest::newRow("force and unknown bits") << 0x3 << "Stop (sb) ('demo.task_sync', true)";
    QTest::newRow("all bits") << -1 << "Stop (sb) ('demo.task_sync', true)";
}

void TestTask::stopSendsTheForceFlagAlone()
{
    QFETCH(int, flags);
    QFETCH(QString, sent);

    Task task(Sync);
    task.stop(Task::StopFlags(QFlag(flags)));
    QTRY_COMPARE(peer.calls(), QStringList(sent));
}

void TestTask::outcomesAreDelivered_data()
{
    QTest::addColumn<QString>("errorName");
    QTest::addColumn<QString>("outcome");

    QTest::newRow("success") << QString() << "0 ";
    QTest::newRow("service error") << Root + QStringLiteral(".Error.HandlerFailed")
                                   << QStringLiteral("%1 the reason").arg(int(Error::HandlerFailed));
    QTest::newRow("standard error") << "org.freedesktop.DBus.Error.AccessDenied"
                                    << QStringLiteral("%1 the reason").arg(int(Error::AccessDenied));
    QTest::newRow("unknown error") << "com.example.Error" << QStringLiteral("%1 the reason").arg(int(Error::Failed));
}

void TestTask::outcomesAreDelivered()
{
    QFETCH(QString, errorName);
    QFETCH(QString, outcome);

    for (const QString &member : {QStringLiteral("Start"), QStringLiteral("Stop")}) {
        if (!errorName.isEmpty())
            peer.answerError(errorName, QStringLiteral("('the reason',)"), member);
    }
    Task task(Sync);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QCOMPARE(outcomes.all, QStringList()); // never from inside the call
    QTRY_COMPARE(outcomes.all, QStringList(outcome));
    task.stop({}, outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList({outcome, outcome}));
    QCOMPARE(task.state(), Task::Unknown); // that is for the service to announce
}

void TestTask::everyCallHasItsOwnOutcome()
{
    peer.hold();
    Task task(Sync);
    QStringList outcomes;
    for (const char *name : {"first", "second", "third"}) {
        task.start([&outcomes, name](const Error &error) {
            outcomes << QStringLiteral("%1 %2").arg(QLatin1String(name)).arg(int(error.code()));
        });
    }
    QTRY_COMPARE(peer.calls().size(), 3);
    peer.release(2, {});
    QTRY_COMPARE(outcomes.size(), 1);
    peer.releaseError(0, QStringLiteral("com.example.Error"));
    QTRY_COMPARE(outcomes.size(), 2);
    peer.release(1, {});
    QTRY_COMPARE(outcomes,
                 QStringList({QStringLiteral("third 0"), QStringLiteral("first 1"), QStringLiteral("second 0")}));
    QVERIFY(peer.roundTrip());
    QCOMPARE(outcomes.size(), 3);
    peer.kill(); // and holds nothing any more
    peer.start();
}

void TestTask::emptyCallbacksAreAllowed()
{
    Task task(Sync);
    task.start({});
    task.stop(Task::Force, {});
    task.start();
    task.stop();
    QTRY_COMPARE(peer.calls().size(), 4);
    QVERIFY(peer.roundTrip());
}

void TestTask::deletedTaskDeliversNothing()
{
    peer.hold();
    Outcomes outcomes;
    {
        Task task(Sync);
        task.start(outcomes.callback());
        task.stop({}, outcomes.callback());
        QTRY_COMPARE(peer.calls().size(), 2);
    }
    peer.release(0, {});
    peer.releaseError(1, QStringLiteral("com.example.Error"));
    QVERIFY(peer.roundTrip());
    {
        Task refused(QString(QChar(0)));
        refused.start(outcomes.callback());
    }
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(outcomes.all, QStringList());
    peer.kill();
    peer.start();
}

void TestTask::taskMayBeDeletedInItsCallback()
{
    for (const QString &id : {Sync, QString(QChar(0))}) { // answered, and refused
        auto *task = new Task(id);
        QStringList outcomes;
        const auto callback = [&outcomes, task, text = QStringLiteral("captured")](const Error &) {
            delete task;
            outcomes << text; // the callback outlives the task
        };
        task->start(callback);
        task->stop({}, callback); // is dropped with the task
        QTRY_COMPARE(outcomes, QStringList(QStringLiteral("captured")));
        QVERIFY(peer.roundTrip());
        QCOMPARE(outcomes.size(), 1);
    }
}

void TestTask::serviceThatVanishesFailsItsCalls()
{
    peer.hold();
    Task task(Sync);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(peer.calls().size(), 1);
    peer.kill();
    QTRY_COMPARE(outcomes.all.size(), 1);
    QVERIFY2(outcomes.all.last().startsWith("1 "), qUtf8Printable(outcomes.all.last()));
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all.size(), 2);
    QVERIFY2(outcomes.all.last().startsWith("1 "), qUtf8Printable(outcomes.all.last()));
    peer.start();
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all.size(), 3);
    QCOMPARE(outcomes.all.last(), QStringLiteral("0 "));
}

void TestTask::statesAreMapped_data()
{
    QTest::addColumn<quint32>("code");
    QTest::addColumn<int>("state");

    QTest::newRow("stopped") << 0U << int(Task::Stopped);
    QTest::newRow("running") << 1U << int(Task::Running);
    QTest::newRow("waiting") << 2U << int(Task::Waiting);
    QTest::newRow("next") << 3U << int(Task::Unknown);
    QTest::newRow("some") << 7U << int(Task::Unknown);
    QTest::newRow("greatest") << 4294967295U << int(Task::Unknown);
}

void TestTask::statesAreMapped()
{
    QFETCH(quint32, code);
    QFETCH(int, state);

    Task task(Sync);
    announce(one(Sync, state == Task::Running ? 0 : 1)); // another one before
    watch(task);
    announce(one(Sync, code));
    QCOMPARE(states, QVector<int>{state});
    QCOMPARE(int(task.state()), state);
}

void TestTask::sameStateIsToldOnce()
{
    announce(QStringLiteral("@a(sua{sv}) []"));
    Task task(QStringLiteral("fresh"));
    watch(task);
    announce(one(QStringLiteral("fresh"), 1));
    announce(one(QStringLiteral("fresh"), 1));
    QCOMPARE(states, QVector<int>{Task::Running});
    announce(QStringLiteral("[('fresh', uint32 1, {'x': <(1, 2)>})]"));
    QCOMPARE(states, QVector<int>{Task::Running});
}

void TestTask::otherTasksAreIgnored()
{
    announce(one(Sync, 1));
    Task task(Sync);
    watch(task);
    announce(one(QStringLiteral("other"), 0));
    announce(one(QStringLiteral("demo.task_sync"), 0)); // the bare id counts
    announce(one(QStringLiteral("Sync"), 0));
    announce(one(QString(), 0));
    announce(QStringLiteral("@a(sua{sv}) []"));
    QCOMPARE(states, QVector<int>());
    QCOMPARE(task.state(), Task::Running); // it keeps what it was
}

void TestTask::everyMatchCounts()
{
    announce(one(Sync, 1));
    Task task(Sync);
    watch(task);
    announce(QStringLiteral("[('sync', uint32 0, @a{sv} {}), ('other', 1, {}), ('sync', 1, {}), ('sync', 1, {}), "
                            "('sync', 2, {})]"));
    QCOMPARE(states, QVector<int>({Task::Stopped, Task::Running, Task::Waiting}));
}

void TestTask::newTaskKnowsItsState()
{
    announce(QStringLiteral("[('sync', uint32 0, @a{sv} {}), ('sync', 2, {})]"));
    QCOMPARE(Task(Sync).state(), Task::Waiting);
    QCOMPARE(Task(QStringLiteral("unheard of")).state(), Task::Unknown);
}

void TestTask::newerStatesWin()
{
    announce(QStringLiteral("@a(sua{sv}) []"));
    Task first(QStringLiteral("one"));
    Task second(QStringLiteral("two"));
    bool isNested = false;
    connect(&first, &Task::stateChanged, &first, [this, &isNested] {
        if (!std::exchange(isNested, true)) // the peer runs an event loop
            announce(QStringLiteral("[('one', uint32 2, @a{sv} {}), ('two', 2, {})]"));
    });
    announce(QStringLiteral("[('one', uint32 1, @a{sv} {}), ('two', 1, {}), ('one', 0, {})]"));
    QVERIFY(isNested);
    QCOMPARE(first.state(), Task::Waiting); // the rest of the older list does not count any more
    QCOMPARE(second.state(), Task::Waiting);
}

void TestTask::taskMayBeDeletedWhenItsStateChanges()
{
    announce(QStringLiteral("@a(sua{sv}) []"));
    auto *task = new Task(QStringLiteral("fresh"));
    connect(task, &Task::stateChanged, this, [this, task](Task::State state) {
        states << int(state);
        delete task;
    });
    Task neighbour(QStringLiteral("fresh")); // whose turn comes later
    announce(QStringLiteral("[('fresh', uint32 1, @a{sv} {}), ('fresh', 0, {}), ('fresh', 1, {}), ('fresh', 2, {})]"));
    QCOMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(neighbour.state(), Task::Waiting);
}

void TestTask::announcementsOfAnotherShapeAreIgnored_data()
{
    QTest::addColumn<QString>("body");

    QTest::newRow("none") << "()";
    QTest::newRow("one task") << "(('sync', uint32 1, @a{sv} {}),)";
    QTest::newRow("no properties") << "([('sync', uint32 1)],)";
    QTest::newRow("signed code") << "([('sync', 1, @a{sv} {})],)";
    QTest::newRow("map") << "({'sync': uint32 1},)";
    QTest::newRow("in a variant") << "(<[('sync', uint32 1, @a{sv} {})]>,)";
    QTest::newRow("numbers") << "([1, 2],)";
    QTest::newRow("one more") << "([('sync', uint32 1, @a{sv} {})], 1)";
}

void TestTask::announcementsOfAnotherShapeAreIgnored()
{
    QFETCH(QString, body);

    announce(one(Sync, 0));
    Task task(Sync);
    peer.emitSignal(Object, Interface, StateChanged, body);
    QCOMPARE(task.state(), Task::Stopped);
    announce(one(Sync, 1));
    QCOMPARE(task.state(), Task::Running);
}

void TestTask::otherSignalsAreIgnored_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");

    QTest::newRow("object") << "Lifecycle1" << Interface << StateChanged;
    QTest::newRow("interface") << Object << QStringLiteral(CORVANE_SERVICE_ROOT ".Lifecycle1") << StateChanged;
    QTest::newRow("the proxy's own") << Object << Interface << "stateChanged";
    QTest::newRow("slot") << Object << Interface << "onStateChanged";
}

void TestTask::otherSignalsAreIgnored()
{
    QFETCH(QString, object);
    QFETCH(QString, interface);
    QFETCH(QString, member);

    announce(one(Sync, 0));
    Task task(Sync);
    peer.emitSignal(object, interface, member, QStringLiteral("(%1,)").arg(one(Sync, 1)));
    QCOMPARE(task.state(), Task::Stopped);
}

void TestTask::strangersAreNotHeard_data()
{
    QTest::addColumn<bool>("unicast");

    QTest::newRow("broadcast") << false;
    QTest::newRow("unicast") << true;
}

void TestTask::strangersAreNotHeard()
{
    QFETCH(bool, unicast);

    announce(one(Sync, 0));
    Task task(Sync);
    QJsonObject more{{QStringLiteral("stranger"), true}};
    if (unicast)
        more.insert(QStringLiteral("destination"), QDBusConnection::sessionBus().baseService());
    const auto forge = [this, &more] {
        peer.emitSignal(Object, Interface, StateChanged, QStringLiteral("(%1,)").arg(one(Sync, 1)), more);
    };
    forge();
    peer.ownServiceName(false);
    forge();
    announce(one(Sync, 1)); // by what was the service before
    peer.ownServiceName(true);
    forge();
    QCOMPARE(task.state(), Task::Stopped);

    more.remove(QStringLiteral("stranger"));
    forge(); // the service may do the same
    QCOMPARE(task.state(), Task::Running);
}

void TestTask::anotherServiceIsHeardAfterTheFirst()
{
    Task task(Sync);
    peer.kill();
    peer.start();
    announce(one(Sync, 1));
    QCOMPARE(task.state(), Task::Running);
    announce(one(Sync, 2));
    QCOMPARE(task.state(), Task::Waiting);
}

void TestTask::firstStatesAreRead_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<int>("count"); // of the tasks that are read

    const auto row = [](const char *name, const char *state, int count) {
        QTest::newRow(name) << QStringLiteral("({'State': <%1>},)").arg(QLatin1String(state)) << count;
    };
    row("one", "[('a', uint32 1, @a{sv} {})]", 1);
    row("two", "[('a', uint32 1, {'x': <1>}), ('b', 7, {})]", 2);
    row("none", "@a(sua{sv}) []", 0);
    row("numbers", "[1, 2]", 0);
    row("no properties", "[('a', uint32 1)]", 0);
    row("map of numbers", "{'a': uint32 1}", 0);
    row("map", "{'a': <1>}", 0);
    row("one task", "('a', uint32 1, @a{sv} {})", 0);
    row("variants", "[<('a', uint32 1, @a{sv} {})>]", 0);
    row("in a variant", "<[('a', uint32 1, @a{sv} {})]>", 0);
    row("texts", "['a']", 0);
    row("text", "'a'", 0);
    row("number", "1", 0);
    QTest::newRow("another key") << "({'state': <[('a', uint32 1, @a{sv} {})]>},)" << 0;
    QTest::newRow("nothing") << "(@a{sv} {},)" << 0;
    QTest::newRow("others too") << "({'A': <[(1, 2)]>, 'State': <[('a', uint32 1, @a{sv} {})]>, 'Z': <1>},)" << 1;
}

void TestTask::firstStatesAreRead()
{
    QFETCH(QString, answer);
    QFETCH(int, count);

    peer.answer(answer, GetAll);
    const TasksInterface another;
    int emitted = 0;
    connect(&another, &TasksInterface::stateChanged, this, [&emitted] { ++emitted; });
    QVERIFY(!another.statesKnown);
    QVERIFY(peer.roundTrip());
    QVERIFY(another.statesKnown);
    QCOMPARE(another.tasksState.size(), count);
    QCOMPARE(emitted, answer.contains(QStringLiteral("'State'")) ? 1 : 0); // even if it is empty
    if (count > 0) {
        QCOMPARE(another.tasksState.first().taskId, QStringLiteral("a"));
        QCOMPARE(another.tasksState.first().state, 1U);
    }
}

void TestTask::failedReadingIsLogged_data()
{
    QTest::addColumn<QString>("answer"); // or an error, if empty
    QTest::addColumn<QString>("error");

    QTest::newRow("error") << QString() << R"(QDBusError("com.example.Error.Broken", "the reason"))";
    QTest::newRow("number")
        << "(1,)"
        << R"(QDBusError("org.freedesktop.DBus.Error.InvalidSignature", "Unexpected reply signature: )"
           R"(got \"i\", expected \"a{sv}\""))";
    QTest::newRow("states alone") << "([('a', uint32 1, @a{sv} {})],)"
                                  << R"(QDBusError("org.freedesktop.DBus.Error.InvalidSignature", "Unexpected reply )"
                                     R"(signature: got \"a(sua{sv})\", expected \"a{sv}\""))";
}

void TestTask::failedReadingIsLogged()
{
    QFETCH(QString, answer);
    QFETCH(QString, error);

    if (answer.isEmpty())
        peer.answerError(QStringLiteral("com.example.Error.Broken"), QStringLiteral("('the reason',)"), GetAll);
    else
        peer.answer(answer, GetAll);
    const TasksInterface another;
    QVERIFY(peer.roundTrip());
    QCOMPARE(log->takeWarnings(), QStringList(QStringLiteral("Failed to get the Tasks interface properties ") + error));
    QVERIFY(!another.statesKnown);
    announce(one(Sync, 1));
    QCOMPARE(another.tasksState.size(), 1); // is heard all the same
    QVERIFY(!another.statesKnown);
}

QTEST_GUILESS_MAIN(TestTask)
#include "tst_task.moc"
