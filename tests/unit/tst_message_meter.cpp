// SPDX-License-Identifier: BSD-3-Clause
#include <Core/types.h>
#include <DBus/message_meter.h>
#include <DBus/types.h>

#include <patience.h>

#include <QtDBus/QDBusObjectPath>
#include <QtDBus/QDBusSignature>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtTest/QtTest>

#include <fcntl.h>

using Corvane::MessageMeter;

namespace {

const QString Key = QStringLiteral("n");
const QString TooDeep = QStringLiteral("A message cannot nest more than 63 containers");
const QString ArrayTooLarge = QStringLiteral("A message cannot hold an array or object of more than 64 MiB");
const QString TooLong = QStringLiteral("A message cannot be longer than 128 MiB");
const QString HasNul = QStringLiteral("A message cannot hold a text with U+0000");

QJsonObject nestedObjects(int depth, QJsonValue innermost)
{
    for (int i = 0; i < depth; ++i)
        innermost = QJsonObject{{Key, innermost}};
    return innermost.toObject();
}

QJsonValue nestedMixedArrays(int depth, QJsonValue innermost)
{
    for (int i = 0; i < depth; ++i)
        innermost = QJsonArray{"x", innermost};
    return innermost;
}

QJsonValue nestedArrays(int depth)
{
    QJsonValue innermost = QJsonArray{1};
    for (int i = 1; i < depth; ++i)
        innermost = QJsonArray{innermost};
    return innermost;
}

QJsonObject nestedObjectArrays(int depth, QJsonValue innermost)
{
    for (int i = 0; i < depth; ++i)
        innermost = QJsonObject{{Key, QJsonArray{innermost}}};
    return innermost.toObject();
}

QString problemOf(const QJsonObject &object)
{
    Corvane::Omissions omissions;
    MessageMeter meter;
    meter.add(Corvane::toBusObject(object, Corvane::Place::Params, &omissions));
    meter.add(omissions);
    return meter.problem();
}

QString problemOfHints(const QJsonObject &object)
{
    Corvane::Omissions omissions;
    MessageMeter meter;
    meter.add(Corvane::toBusMap(object, Corvane::Place::Hints, &omissions));
    meter.add(omissions);
    return meter.problem();
}

QString problemOf(const QVariantMap &map)
{
    MessageMeter meter;
    meter.add(map);
    return meter.problem();
}

} // namespace

class TestMessageMeter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { Corvane::registerRecordTypes(); } // the meter needs the signatures of the types
    void levelsAreCounted_data();
    void levelsAreCounted();
    void levelsOfArraysOfObjectsAreCounted();
    void recursionIsLimited();
    void arraysAreMeasured_data();
    void arraysAreMeasured();
    void listsAreMeasured_data();
    void listsAreMeasured();
    void wholeMessageIsMeasured_data();
    void wholeMessageIsMeasured();
    void nulIsFound_data();
    void nulIsFound();
    void descriptorsAreCounted();
    void firstProblemIsKept();
};

void TestMessageMeter::levelsAreCounted_data()
{
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<QString>("problem");

    const QJsonObject empty;
    QTest::newRow("21 objects") << nestedObjects(21, 1) << QString();
    QTest::newRow("22 objects") << nestedObjects(22, 1) << TooDeep;
    QTest::newRow("20 objects around an empty one") << nestedObjects(20, empty) << QString();
    QTest::newRow("21 objects around an empty one") << nestedObjects(21, empty) << TooDeep;
    QTest::newRow("21 objects around an empty array") << nestedObjects(21, QJsonArray()) << TooDeep;
    QTest::newRow("29 mixed arrays around an empty one")
        << QJsonObject{{Key, nestedMixedArrays(29, QJsonArray())}} << QString();
    QTest::newRow("30 mixed arrays around an empty one")
        << QJsonObject{{Key, nestedMixedArrays(30, QJsonArray())}} << TooDeep;
    QTest::newRow("30 mixed arrays") << QJsonObject{{Key, nestedMixedArrays(30, 1)}} << QString();
    QTest::newRow("31 mixed arrays") << QJsonObject{{Key, nestedMixedArrays(31, 1)}} << TooDeep;
    QTest::newRow("20 objects around an array") << nestedObjects(20, QJsonArray{"x"}) << QString();
    for (const QJsonValue &element : {QJsonValue(1), QJsonValue("x"), QJsonValue(true)})
        QTest::addRow("21 objects around an array of %s", qPrintable(element.toVariant().toString()))
            << nestedObjects(21, QJsonArray{element}) << TooDeep;
    QTest::newRow("20 objects around an array of an empty one") << nestedObjects(20, QJsonArray{empty}) << QString();
    QTest::newRow("20 objects around an array of objects")
        << nestedObjects(20, QJsonArray{nestedObjects(1, 1)}) << TooDeep;
    QTest::newRow("numbers below the last level")
        << nestedObjects(20, QJsonArray{"x", QJsonArray{"x", QJsonArray{1, 2}}}) << TooDeep;
    QTest::newRow("array of arrays, which is omitted") << nestedObjects(21, QJsonArray{QJsonArray{1}}) << QString();
}

void TestMessageMeter::levelsAreCounted()
{
    QFETCH(QJsonObject, object);
    QFETCH(QString, problem);

    QCOMPARE(problemOf(object), problem);
    QCOMPARE(problemOfHints(object), problem);
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(object)), problem);
}

void TestMessageMeter::levelsOfArraysOfObjectsAreCounted()
{
    const QJsonObject empty;
    QCOMPARE(problemOf(nestedObjectArrays(15, empty)), QString());
    QCOMPARE(problemOf(nestedObjectArrays(16, empty)), TooDeep);

    // In hints, only the outermost array is an array of objects. Inner arrays are mixed; that adds a level.
    QCOMPARE(problemOfHints(nestedObjectArrays(12, empty)), QString());
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(nestedObjectArrays(12, empty))), QString());
    QCOMPARE(problemOfHints(nestedObjectArrays(13, empty)), TooDeep);
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(nestedObjectArrays(13, empty))), TooDeep);
}

void TestMessageMeter::recursionIsLimited()
{
    const QJsonObject mixedArrays{{Key, nestedMixedArrays(20000, 1)}};
    for (const auto problem : {static_cast<QString (*)(const QJsonObject &)>(problemOf), problemOfHints}) {
        QCOMPARE(problem(nestedObjects(20000, 1)), TooDeep);
        QCOMPARE(problem(mixedArrays), TooDeep);
        QCOMPARE(problem(nestedObjectArrays(10000, 1)), TooDeep);
    }
    // An array of arrays is omitted and not measured, except inside another array.
    const QJsonObject arrays{{Key, nestedArrays(20000)}};
    QCOMPARE(problemOf(arrays), QString());
    QCOMPARE(problemOfHints(arrays), QString());
    QCOMPARE(problemOf(QJsonObject{{Key, QJsonArray{arrays}}}), QString());
    QCOMPARE(problemOfHints(QJsonObject{{Key, QJsonArray{arrays}}}), TooDeep);
}

void TestMessageMeter::arraysAreMeasured_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("problem");

    // The body of {"n": text}: the key (7 bytes), the variant's signature (3), padding to 12, a length (4), a NUL.
    const int room = 64 * 1024 * 1024 - 17;
    QTest::newRow("one byte each, fits") << room << "x" << QString();
    QTest::newRow("one byte each, too large") << room + 1 << "x" << ArrayTooLarge;
    QTest::newRow("two bytes each, fits") << room / 2 << QString::fromUtf8("é") << QString();
    QTest::newRow("two bytes each, too large") << room / 2 + 1 << QString::fromUtf8("é") << ArrayTooLarge;
    QTest::newRow("three bytes each, fits") << room / 3 << QString::fromUtf8("€") << QString();
    QTest::newRow("three bytes each, too large") << room / 3 + 1 << QString::fromUtf8("€") << ArrayTooLarge;
    QTest::newRow("four bytes each, fits") << room / 4 << QString::fromUtf8("🐎") << QString();
    QTest::newRow("four bytes each, too large") << room / 4 + 1 << QString::fromUtf8("🐎") << ArrayTooLarge;
}

void TestMessageMeter::arraysAreMeasured()
{
    QFETCH(int, size);
    QFETCH(QString, unit);
    QFETCH(QString, problem);

    const QString text = unit.repeated(size);
    QCOMPARE(problemOf(QJsonObject{{Key, text}}), problem);
    QCOMPARE(problemOf(QVariantMap{{Key, text}}), problem);
}

void TestMessageMeter::listsAreMeasured_data()
{
    QTest::addColumn<QVariant>("list");
    QTest::addColumn<int>("signature"); // its length
    QTest::addColumn<int>("alignment"); // of an element on the bus
    QTest::addColumn<int>("size");

    const auto row = [](const char *tag, auto element, int signature, int alignment, int size) {
        QList<decltype(element)> list;
        list.reserve(1000);
        for (int i = 0; i < 1000; ++i)
            list.append(element);
        QTest::newRow(tag) << QVariant::fromValue(list) << signature << alignment << size;
    };
    row("truths", true, 2, 4, 4);
    row("16 bits", short(1), 2, 2, 2);
    row("16 bits, unsigned", ushort(1), 2, 2, 2);
    row("32 bits", 1, 2, 4, 4);
    row("32 bits, unsigned", 1U, 2, 4, 4);
    row("64 bits", qlonglong(1), 2, 8, 8);
    row("64 bits, unsigned", qulonglong(1), 2, 8, 8);
    row("numbers", 1.0, 2, 8, 8);
    row("object paths", QDBusObjectPath("/ab"), 2, 4, 8);
    row("signatures", QDBusSignature("ai"), 2, 1, 4);
    QStringList texts;
    for (int i = 0; i < 1000; ++i)
        texts.append("123");
    QTest::newRow("texts") << QVariant(texts) << 2 << 4 << 8;
}

/// Determines the size by the number of bytes that fit into the message together with the list.
void TestMessageMeter::listsAreMeasured()
{
    QFETCH(QVariant, list);
    QFETCH(int, signature);
    QFETCH(int, alignment);
    QFETCH(int, size);

    const auto aligned = [](int offset, int to) { return (offset + to - 1) / to * to; };
    int used = aligned(6 + 2 + signature, 4) + 4; // the key, the signature and the length
    used = aligned(used, alignment) + 1000 * size;
    used = aligned(used, 8) + 16; // a key, a signature of two, a length
    const int room = 64 * 1024 * 1024 - used;
    for (const int more : {-1, 0, 1}) {
        const QVariantMap map{{"a", list}, {Key, QByteArray(room + more, 'x')}};
        QCOMPARE(problemOf(map), more <= 0 ? QString() : ArrayTooLarge);
    }
}

void TestMessageMeter::wholeMessageIsMeasured_data()
{
    QTest::addColumn<QVariant>("last");
    QTest::addColumn<int>("size"); // including the key

    QTest::newRow("text") << QVariant("123") << 20;
    QTest::newRow("object path") << QVariant::fromValue(QDBusObjectPath("/ab")) << 20;
    QTest::newRow("number") << QVariant(1.0) << 24;
    QTest::newRow("truth") << QVariant(true) << 16;
    QTest::newRow("bytes") << QVariant(QByteArrayLiteral("1234")) << 20;
    QTest::newRow("numbers") << QVariant::fromValue(QList<double>{1, 2}) << 32;
}

/// The last member exceeds the limit.
void TestMessageMeter::wholeMessageIsMeasured()
{
    QFETCH(QVariant, last);
    QFETCH(int, size);

    constexpr int Most = 128 * 1024 * 1024 - 4096; // the rest is for the header
    constexpr int First = 64 * 1024 * 1024; // includes the length of the map and the 16 bytes above
    const QByteArray bytes(First - 24, 'x');
    for (const int more : {-8, 0, 8}) {
        const int start = (Most - size) / 8 * 8 + more; // of the member, after the length of the map
        MessageMeter meter;
        meter.add(QVariantMap{{Key, bytes}});
        meter.add(QVariantMap{{Key, QByteArray(start - 4 - First - 24, 'x')}});
        meter.add(QVariantMap{{Key, last}});
        QCOMPARE(meter.problem(), more <= 0 ? QString() : TooLong);
    }
}

void TestMessageMeter::nulIsFound_data()
{
    QTest::addColumn<QJsonObject>("object");

    const QString nul = QString("a") + QChar(0) + 'b';
    QTest::newRow("value") << QJsonObject{{Key, nul}};
    QTest::newRow("key") << QJsonObject{{nul, 1}};
    QTest::newRow("in an array of strings") << QJsonObject{{Key, QJsonArray{"x", nul}}};
    QTest::newRow("in a mixed array") << QJsonObject{{Key, QJsonArray{1, nul}}};
    QTest::newRow("in an array of objects") << QJsonObject{{Key, QJsonArray{QJsonObject{{Key, nul}}}}};
    QTest::newRow("deeper in a mixed array") << QJsonObject{{Key, QJsonArray{1, QJsonObject{{nul, 1}}}}};
    QTest::newRow("in an object") << QJsonObject{{Key, QJsonObject{{Key, nul}}}};
}

void TestMessageMeter::nulIsFound()
{
    QFETCH(QJsonObject, object);

    QCOMPARE(problemOf(object), HasNul);
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(object)), HasNul);

    MessageMeter meter;
    meter.add(QString(QChar(0)));
    QCOMPARE(meter.problem(), HasNul);
}

void TestMessageMeter::descriptorsAreCounted()
{
    QDBusUnixFileDescriptor descriptor;
    descriptor.giveFileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    QVERIFY(descriptor.isValid());
    QList<QDBusUnixFileDescriptor> descriptors;
    for (int i = 0; i < CORVANE_MAX_DESCRIPTORS; ++i)
        descriptors.append(descriptor);

    QVariantMap map{{"readFds", QVariant::fromValue(descriptors)}};
    QCOMPARE(problemOf(map), QString());
    map.insert("writeFds", QVariant::fromValue(descriptors.mid(0, 1)));
    QCOMPARE(problemOf(map), QString("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS));
}

void TestMessageMeter::firstProblemIsKept()
{
    MessageMeter meter;
    meter.add(QString(QChar(0)));
    meter.add(QVariantMap{{Key, QString(64 << 20, QLatin1Char('x'))}});
    QCOMPARE(meter.problem(), HasNul);
}

QTEST_GUILESS_MAIN(TestMessageMeter)
#include "tst_message_meter.moc"
