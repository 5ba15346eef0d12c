// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/memory_pressure.h>
#include <Corvane/memory_pressure_p.h>

#include <bus_text.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QMetaEnum>
#include <QtCore/QThread>
#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <optional>
#include <type_traits>

using namespace Corvane;

namespace {

const QString Object = QStringLiteral("MemoryPressure1");
const QString Interface = QStringLiteral(CORVANE_SERVICE_ROOT ".MemoryPressure1");
const QString Properties = QStringLiteral("org.freedesktop.DBus.Properties");
const QString PropertiesChanged = QStringLiteral("PropertiesChanged");
const QString Subscribe = QStringLiteral("Subscribe");
const QString GetAll = QStringLiteral("GetAll");

QStringList bothCalls()
{
    return {"Subscribe () ()", QString("GetAll (s) ('%1',)").arg(Interface)};
}

} // namespace

class TestMemoryPressure : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void thereIsOneInstance();
    void levelsAreKnownToTheMetaObject();
    void changesAreEmitted_data();
    void changesAreEmitted();
    void everyEntryIsApplied();
    void objectMayBeDeletedBetweenTwoEntries();
    void repeatedLevelIsEmittedOnce();
    void changesOfAnotherSignatureAreIgnored_data();
    void changesOfAnotherSignatureAreIgnored();
    void otherSignalsAreIgnored_data();
    void otherSignalsAreIgnored();
    void signalsOfOtherSendersAreIgnored_data();
    void signalsOfOtherSendersAreIgnored();
    void subscribesThenReadsTheLevel();
    void firstLevelIsRead_data();
    void firstLevelIsRead();
    void failedSubscriptionIsLogged();
    void failedFetchIsLogged();
    void replyOfAnotherSignatureIsLogged_data();
    void replyOfAnotherSignatureIsLogged();
    void missingServiceIsLogged();
    void serviceExitIsLogged();
    void signalsOfARestartedServiceArrive();
    void repliesAreDroppedAfterDeletion();
    void changesCrossThreads();
    void slotMayDeleteTheObject();

private:
    void emitChange(const QString &body) { peer.emitSignal(Object, Properties, PropertiesChanged, body); }
    void emitLevel(const char *value) { emitChange(QString("('%1', {'Level': <%2>}, @as [])").arg(Interface, value)); }
    QVector<int> takeLevels()
    {
        QVector<int> taken;
        taken.swap(levels);
        return taken;
    }
    static int level() { return MemoryPressure::instance()->property("level").toInt(); }

    ServicePeer peer;
    QVector<int> levels;
    std::optional<MessageLog> log;
};

void TestMemoryPressure::initTestCase()
{
    // The level before the first reply of the service.
    peer.answer("({'Level': <200>},)", GetAll);
    MemoryPressure *memoryPressure = MemoryPressure::instance();
    QCOMPARE(memoryPressure->level(), MemoryPressure::NormalLevel);
    connect(memoryPressure, &MemoryPressure::levelChanged, this,
            [this](MemoryPressure::MemoryLevel newLevel) { levels << int(newLevel); });
    QTRY_COMPARE(levels, QVector<int>{200});
    QCOMPARE(peer.takeCalls(), bothCalls());
}

void TestMemoryPressure::init()
{
    log.emplace();
    peer.answer({}, Subscribe);
    peer.answer("({'Level': <0>},)", GetAll);
    emitLevel("0");
    levels.clear();
    peer.takeCalls();
}

void TestMemoryPressure::cleanup()
{
    log.reset();
}

void TestMemoryPressure::thereIsOneInstance()
{
    QCOMPARE(MemoryPressure::instance(), MemoryPressure::instance());
    QVERIFY(!MemoryPressure::instance()->parent());
}

void TestMemoryPressure::levelsAreKnownToTheMetaObject()
{
    static_assert(std::is_same_v<std::underlying_type_t<MemoryPressure::MemoryLevel>, int>);
    const auto levelEnum = QMetaEnum::fromType<MemoryPressure::MemoryLevel>();
    QCOMPARE(levelEnum.keyToValue("NormalLevel"), 0);
    QCOMPARE(levelEnum.keyToValue("LowLevel"), 100);
    QCOMPARE(levelEnum.keyToValue("CriticalLevel"), 200);
    QCOMPARE(levelEnum.keyCount(), 3);

    const QMetaObject &meta = MemoryPressure::staticMetaObject;
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 1);
    const QMetaProperty property = meta.property(meta.propertyOffset());
    QCOMPARE(property.name(), "level");
    QVERIFY(!property.isWritable());
    QCOMPARE(property.notifySignal().methodSignature(), QByteArray("levelChanged(MemoryLevel)"));
}

void TestMemoryPressure::changesAreEmitted_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QVector<int>>("expected");

    const auto row = [](const char *name, const char *body, const QVector<int> &expected) {
        QTest::newRow(name) << QString::fromLatin1(body).replace("OURS", Interface) << expected;
    };
    row("low", "('OURS', {'Level': <100>}, @as [])", {100});
    row("critical", "('OURS', {'Level': <200>}, @as [])", {200});
    row("between", "('OURS', {'Level': <150>}, @as [])", {150});
    row("less than normal", "('OURS', {'Level': <-1>}, @as [])", {-1});
    row("greatest", "('OURS', {'Level': <2147483647>}, @as [])", {2147483647});
    row("least", "('OURS', {'Level': <-2147483648>}, @as [])", {-2147483647 - 1});
    row("uint32", "('OURS', {'Level': <uint32 100>}, @as [])", {100});
    row("int64", "('OURS', {'Level': <int64 100>}, @as [])", {100});
    row("byte", "('OURS', {'Level': <byte 0x64>}, @as [])", {100});
    row("double", "('OURS', {'Level': <100.0>}, @as [])", {100});
    row("double between", "('OURS', {'Level': <99.6>}, @as [])", {100});
    row("truth", "('OURS', {'Level': <true>}, @as [])", {1});
    row("number in a text", "('OURS', {'Level': <'100'>}, @as [])", {100});
    row("text", "('OURS', {'Level': <'high'>}, @as [])", {});
    row("array", "('OURS', {'Level': <[100]>}, @as [])", {});
    row("structure", "('OURS', {'Level': <(100, 1)>}, @as [])", {});
    row("absent", "('OURS', {'Other': <100>}, @as [])", {});
    row("another case", "('OURS', {'level': <100>}, @as [])", {});
    row("nothing", "('OURS', @a{sv} {}, @as [])", {});
    row("with others", "('OURS', {'A': <1>, 'Level': <100>, 'Z': <2>}, ['B'])", {100});
    row("invalidated", "('OURS', @a{sv} {}, ['Level'])", {});
    row("of another interface", "('com.example.Other', {'Level': <100>}, @as [])", {100});
}

void TestMemoryPressure::changesAreEmitted()
{
    QFETCH(QString, body);
    QFETCH(QVector<int>, expected);

    QObject context;
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, &context,
            [](MemoryPressure::MemoryLevel newLevel) { QCOMPARE(level(), int(newLevel)); }); // it has been stored
    emitChange(body);
    QCOMPARE(takeLevels(), expected);
    QCOMPARE(level(), expected.isEmpty() ? 0 : expected.first());
}

void TestMemoryPressure::everyEntryIsApplied()
{
    MemoryPressurePrivate direct(MemoryPressure::instance());
    QMultiMap<QString, QVariant> twice{{"A", 1}};
    twice.insert("Level", 200);
    twice.insert("Level", 100); // iterators return the last inserted value first
    direct.onPropertiesChanged({}, QVariantMap(twice), {});
    QCOMPARE(takeLevels(), QVector<int>({100, 200}));
    QCOMPARE(direct.level, 200);
    QVERIFY(peer.roundTrip());
}

void TestMemoryPressure::objectMayBeDeletedBetweenTwoEntries()
{
    auto *direct = new MemoryPressurePrivate(MemoryPressure::instance());
    QObject context;
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, &context, [direct] { delete direct; });
    QMultiMap<QString, QVariant> twice;
    twice.insert("Level", 200);
    twice.insert("Level", 100);
    direct->onPropertiesChanged({}, QVariantMap(twice), {});
    QCOMPARE(takeLevels(), QVector<int>{100});
    QVERIFY(peer.roundTrip());
}

void TestMemoryPressure::repeatedLevelIsEmittedOnce()
{
    emitLevel("100");
    emitLevel("100");
    emitLevel("uint32 100");
    emitLevel("200");
    emitLevel("'high'"); // a text becomes the normal level
    QCOMPARE(takeLevels(), QVector<int>({100, 200, 0}));
}

void TestMemoryPressure::changesOfAnotherSignatureAreIgnored_data()
{
    QTest::addColumn<QString>("body");

    QTest::newRow("none") << "()";
    QTest::newRow("map only") << "({'Level': <100>},)";
    QTest::newRow("no list") << "('x', {'Level': <100>})";
    QTest::newRow("map of numbers") << "('x', {'Level': 100}, @as [])";
    QTest::newRow("list of numbers") << "('x', {'Level': <100>}, [1])";
    QTest::newRow("one more") << "('x', {'Level': <100>}, @as [], 1)";
    QTest::newRow("structures") << "('x', [('Level', <100>)], @as [])";
}

void TestMemoryPressure::changesOfAnotherSignatureAreIgnored()
{
    QFETCH(QString, body);

    emitChange(body);
    QCOMPARE(takeLevels(), QVector<int>());
    emitLevel("100");
    QCOMPARE(takeLevels(), QVector<int>{100});
}

void TestMemoryPressure::otherSignalsAreIgnored_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");

    QTest::newRow("object") << "Lifecycle1" << Properties << PropertiesChanged;
    QTest::newRow("interface") << Object << Interface << PropertiesChanged;
    QTest::newRow("member") << Object << Properties << "LevelChanged";
}

void TestMemoryPressure::otherSignalsAreIgnored()
{
    QFETCH(QString, object);
    QFETCH(QString, interface);
    QFETCH(QString, member);

    peer.emitSignal(object, interface, member, QString("('%1', {'Level': <100>}, @as [])").arg(Interface));
    QCOMPARE(takeLevels(), QVector<int>());
}

void TestMemoryPressure::signalsOfOtherSendersAreIgnored_data()
{
    QTest::addColumn<bool>("unicast");

    QTest::newRow("broadcast") << false;
    QTest::newRow("unicast") << true;
}

void TestMemoryPressure::signalsOfOtherSendersAreIgnored()
{
    QFETCH(bool, unicast);

    QJsonObject more{{"stranger", true}};
    if (unicast)
        more.insert("destination", QDBusConnection::sessionBus().baseService());
    const auto forge = [this, &more] {
        peer.emitSignal(Object, Properties, PropertiesChanged,
                        QString("('%1', {'Level': <100>}, @as [])").arg(Interface), more);
    };
    forge();
    QCOMPARE(takeLevels(), QVector<int>());
    peer.ownServiceName(false);
    forge();
    QCOMPARE(takeLevels(), QVector<int>());
    emitLevel("100"); // sent by the previous owner of the service's name
    QCOMPARE(takeLevels(), QVector<int>());
    peer.ownServiceName(true);
    forge();
    QCOMPARE(takeLevels(), QVector<int>());

    more.remove("stranger");
    forge(); // the same signal from the service counts
    QCOMPARE(takeLevels(), QVector<int>{100});
}

void TestMemoryPressure::subscribesThenReadsTheLevel()
{
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.takeCalls(), bothCalls());
    QCOMPARE(another.parent(), nullptr);
}

void TestMemoryPressure::firstLevelIsRead_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<int>("expected");

    QTest::newRow("normal") << "({'Level': <0>},)" << 0;
    QTest::newRow("critical") << "({'Level': <200>},)" << 200;
    QTest::newRow("between") << "({'Level': <150>},)" << 150;
    QTest::newRow("uint32") << "({'Level': <uint32 100>},)" << 100;
    QTest::newRow("int64") << "({'Level': <int64 100>},)" << 100;
    QTest::newRow("text") << "({'Level': <'high'>},)" << 0;
    QTest::newRow("absent") << "({'Other': <100>},)" << 0;
    QTest::newRow("nothing") << "(@a{sv} {},)" << 0;
    QTest::newRow("with others") << "({'A': <[(1, 2)]>, 'Level': <100>},)" << 100;
    QTest::newRow("further argument") << "({'Level': <100>}, 'more')" << 100;
}

void TestMemoryPressure::firstLevelIsRead()
{
    QFETCH(QString, answer);
    QFETCH(int, expected);

    peer.answer(answer, GetAll);
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QCOMPARE(another.level, 0); // the constructor does not wait for the reply
    QVERIFY(peer.roundTrip());
    QCOMPARE(another.level, expected);
    QCOMPARE(takeLevels(), expected == 0 ? QVector<int>() : QVector<int>{expected});
}

void TestMemoryPressure::failedSubscriptionIsLogged()
{
    peer.answerError("com.example.Error.Broken", "('the reason',)", Subscribe);
    peer.answer("({'Level': <100>},)", GetAll);
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QVERIFY(peer.roundTrip());
    QCOMPARE(
        log->takeWarnings(),
        QStringList("MemoryPressure subscription failed: QDBusError(\"com.example.Error.Broken\", \"the reason\")"));
    QCOMPARE(another.level, 100); // the level is fetched nevertheless
    emitLevel("200");
    QCOMPARE(another.level, 200);
}

void TestMemoryPressure::failedFetchIsLogged()
{
    peer.answerError("com.example.Error.Broken", "('the reason',)", GetAll);
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QVERIFY(peer.roundTrip());
    QCOMPARE(log->takeWarnings(),
             QStringList("Failed to get memory level: QDBusError(\"com.example.Error.Broken\", \"the reason\")"));
    QCOMPARE(another.level, 0);
    emitLevel("200");
    QCOMPARE(another.level, 200);
    QCOMPARE(peer.takeCalls(), bothCalls()); // no further attempt
}

void TestMemoryPressure::replyOfAnotherSignatureIsLogged_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("signature");

    QTest::newRow("nothing") << "()"
                             << "";
    QTest::newRow("number") << "(100,)"
                            << "i";
    QTest::newRow("map of numbers") << "({'Level': 100},)"
                                    << "a{si}";
    QTest::newRow("structures") << "([('Level', <100>)],)"
                                << "a(sv)";
}

void TestMemoryPressure::replyOfAnotherSignatureIsLogged()
{
    QFETCH(QString, answer);
    QFETCH(QString, signature);

    peer.answer(answer, GetAll);
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QVERIFY(peer.roundTrip());
    QCOMPARE(
        log->takeWarnings(),
        QStringList(QString("Failed to get memory level: QDBusError(\"org.freedesktop.DBus.Error.InvalidSignature\", "
                            "\"Unexpected reply signature: got \\\"%1\\\", expected \\\"a{sv}\\\"\")")
                        .arg(signature)));
    QCOMPARE(another.level, 0);
}

void TestMemoryPressure::missingServiceIsLogged()
{
    peer.ownServiceName(false);
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QVERIFY(peer.busRoundTrip());
    const QString error = "QDBusError(\"org.freedesktop.DBus.Error.ServiceUnknown\", ...)";
    QCOMPARE(withoutBusTexts(log->takeWarnings()),
             QStringList({"MemoryPressure subscription failed: " + error, "Failed to get memory level: " + error}));
    peer.ownServiceName(true);
    emitLevel("100"); // signals of a service that starts later arrive
    QCOMPARE(another.level, 100);
}

void TestMemoryPressure::serviceExitIsLogged()
{
    peer.hold();
    const MemoryPressurePrivate another(MemoryPressure::instance());
    QTRY_COMPARE(peer.calls().size(), 2);
    peer.kill();
    const QString error = "QDBusError(\"org.freedesktop.DBus.Error.NoReply\", ...)";
    QStringList warnings;
    QTRY_COMPARE((warnings += withoutBusTexts(log->takeWarnings()), warnings.size()), 2);
    warnings.sort(); // the bus sends the errors in any order
    QCOMPARE(warnings,
             QStringList({"Failed to get memory level: " + error, "MemoryPressure subscription failed: " + error}));
    peer.start();
    emitLevel("100");
    QCOMPARE(another.level, 100);
}

void TestMemoryPressure::signalsOfARestartedServiceArrive()
{
    peer.kill();
    peer.start();
    emitLevel("100");
    QCOMPARE(takeLevels(), QVector<int>{100});
    QCOMPARE(peer.takeCalls(), QStringList()); // the object does not retry
}

void TestMemoryPressure::repliesAreDroppedAfterDeletion()
{
    peer.hold();
    {
        const MemoryPressurePrivate another(MemoryPressure::instance());
        QTRY_COMPARE(peer.calls().size(), 2);
    }
    peer.releaseError(0, "com.example.Error.Broken");
    peer.release(1, "({'Level': <100>},)");
    QVERIFY(peer.roundTrip());
    QCOMPARE(takeLevels(), QVector<int>());
    peer.kill(); // the restarted peer holds no calls
    peer.start();
}

void TestMemoryPressure::changesCrossThreads()
{
    QThread thread;
    thread.start();
    QObject receiver;
    receiver.moveToThread(&thread);
    QAtomicInt lastLevel(-1);
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, &receiver,
            [&lastLevel](MemoryPressure::MemoryLevel newLevel) { lastLevel = newLevel; });
    emitLevel("100");
    QTRY_COMPARE(lastLevel.loadAcquire(), 100);
    thread.quit();
    thread.wait();
}

void TestMemoryPressure::slotMayDeleteTheObject()
{
    // The last test, because the pointer is not reset.
    MemoryPressure *memoryPressure = MemoryPressure::instance();
    connect(memoryPressure, &MemoryPressure::levelChanged, memoryPressure, [memoryPressure] { delete memoryPressure; });
    emitLevel("200");
    QCOMPARE(takeLevels(), QVector<int>{200});
    emitLevel("0");
    QCOMPARE(takeLevels(), QVector<int>());
    QCOMPARE(MemoryPressure::instance(), memoryPressure); // a dangling pointer, as documented
}

QTEST_GUILESS_MAIN(TestMemoryPressure)
#include "tst_memory_pressure.moc"
