// SPDX-License-Identifier: BSD-3-Clause
#include <Core/types.h>
#include <DBus/message_meter.h>

#include <patience.h>

#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtTest/QtTest>

#include <fcntl.h>

using Corvane::MessageMeter;

namespace {

const QString Key = QStringLiteral("n");
const QString TooDeep = QStringLiteral("A message cannot nest more than 64 containers");
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
        innermost = QJsonArray{QStringLiteral("x"), innermost};
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
    MessageMeter meter;
    meter.add(object);
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
    void countsLevels_data();
    void countsLevels();
    void countsLevelsOfArraysOfObjects();
    void doesNotDescendForEver();
    void measuresArrays_data();
    void measuresArrays();
    void measuresTheWholeMessage();
    void findsNul_data();
    void findsNul();
    void countsDescriptors();
    void firstProblemIsKept();
};

void TestMessageMeter::countsLevels_data()
{
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<QString>("problem");

    const QJsonObject empty;
    QTest::newRow("21 objects") << nestedObjects(21, 1) << QString();
    QTest::newRow("22 objects") << nestedObjects(22, 1) << TooDeep;
    QTest::newRow("22 objects, the last empty") << nestedObjects(21, empty) << QString();
    QTest::newRow("23 objects, the last empty") << nestedObjects(22, empty) << TooDeep;
    QTest::newRow("31 mixed arrays, the last empty")
        << QJsonObject{{Key, nestedMixedArrays(30, QJsonArray())}} << QString();
    QTest::newRow("32 mixed arrays, the last empty")
        << QJsonObject{{Key, nestedMixedArrays(31, QJsonArray())}} << TooDeep;
    QTest::newRow("30 mixed arrays") << QJsonObject{{Key, nestedMixedArrays(30, 1)}} << QString();
    QTest::newRow("31 mixed arrays") << QJsonObject{{Key, nestedMixedArrays(31, 1)}} << TooDeep;
    QTest::newRow("strings at the last level") << nestedObjects(21, QJsonArray{QStringLiteral("x")}) << QString();
    QTest::newRow("objects below the last level") << nestedObjects(21, QJsonArray{nestedObjects(1, 1)}) << TooDeep;
    QTest::newRow("numbers below the last level")
        << nestedObjects(20, QJsonArray{QStringLiteral("x"), QJsonArray{QStringLiteral("x"), QJsonArray{1, 2}}})
        << TooDeep;
    QTest::newRow("array of arrays, which is left out") << nestedObjects(21, QJsonArray{QJsonArray{1}}) << QString();
}

void TestMessageMeter::countsLevels()
{
    QFETCH(QJsonObject, object);
    QFETCH(QString, problem);

    QCOMPARE(problemOf(object), problem);
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(object)), problem);
}

void TestMessageMeter::countsLevelsOfArraysOfObjects()
{
    const QJsonObject empty;
    QCOMPARE(problemOf(nestedObjectArrays(16, empty)), QString());
    QCOMPARE(problemOf(nestedObjectArrays(17, empty)), TooDeep);

    // As variants only the outermost array is one of objects; those in it are mixed, and take a level more.
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(nestedObjectArrays(13, empty))), QString());
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(nestedObjectArrays(14, empty))), TooDeep);
}

void TestMessageMeter::doesNotDescendForEver()
{
    QCOMPARE(problemOf(nestedObjects(20000, 1)), TooDeep);
    QCOMPARE(problemOf(QJsonObject{{Key, nestedMixedArrays(20000, 1)}}), TooDeep);
    QCOMPARE(problemOf(nestedObjectArrays(10000, 1)), TooDeep);
}

void TestMessageMeter::measuresArrays_data()
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

void TestMessageMeter::measuresArrays()
{
    QFETCH(int, size);
    QFETCH(QString, unit);
    QFETCH(QString, problem);

    const QString text = unit.repeated(size);
    QCOMPARE(problemOf(QJsonObject{{Key, text}}), problem);
    QCOMPARE(problemOf(QVariantMap{{Key, text}}), problem);
}

void TestMessageMeter::measuresTheWholeMessage()
{
    const QString half = QString(60 * 1024 * 1024, QLatin1Char('x'));
    MessageMeter meter;
    meter.add(QStringLiteral("Intent"));
    meter.add(QVariantMap{{Key, half}});
    meter.add(QJsonObject{{Key, half}});
    QCOMPARE(meter.problem(), QString());
    meter.add(QString(8 * 1024 * 1024, QLatin1Char('x')));
    QCOMPARE(meter.problem(), TooLong);
}

void TestMessageMeter::findsNul_data()
{
    QTest::addColumn<QJsonObject>("object");

    const QString nul = QStringLiteral("a\0b").left(2) + QChar(0) + QLatin1Char('b');
    QTest::newRow("value") << QJsonObject{{Key, nul}};
    QTest::newRow("key") << QJsonObject{{nul, 1}};
    QTest::newRow("in an array of strings") << QJsonObject{{Key, QJsonArray{QStringLiteral("x"), nul}}};
    QTest::newRow("in a mixed array") << QJsonObject{{Key, QJsonArray{1, nul}}};
    QTest::newRow("in an array of objects") << QJsonObject{{Key, QJsonArray{QJsonObject{{Key, nul}}}}};
    QTest::newRow("deeper in a mixed array") << QJsonObject{{Key, QJsonArray{1, QJsonObject{{nul, 1}}}}};
    QTest::newRow("in an object") << QJsonObject{{Key, QJsonObject{{Key, nul}}}};
}

void TestMessageMeter::findsNul()
{
    QFETCH(QJsonObject, object);

    QCOMPARE(problemOf(object), HasNul);
    QCOMPARE(problemOf(Core::Types::jsonObjectToVariantMap(object)), HasNul);

    MessageMeter meter;
    meter.add(QString(QChar(0)));
    QCOMPARE(meter.problem(), HasNul);
}

void TestMessageMeter::countsDescriptors()
{
    QDBusUnixFileDescriptor descriptor;
    descriptor.giveFileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    QVERIFY(descriptor.isValid());
    QList<QDBusUnixFileDescriptor> descriptors;
    for (int i = 0; i < CORVANE_MAX_DESCRIPTORS; ++i)
        descriptors.append(descriptor);

    QVariantMap map{{QStringLiteral("readFds"), QVariant::fromValue(descriptors)}};
    QCOMPARE(problemOf(map), QString());
    map.insert(QStringLiteral("writeFds"), QVariant::fromValue(descriptors.mid(0, 1)));
    QCOMPARE(problemOf(map), QStringLiteral("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS));
}

void TestMessageMeter::firstProblemIsKept()
{
    MessageMeter meter;
    meter.add(QString(QChar(0)));
    meter.add(nestedObjects(22, 1));
    QCOMPARE(meter.problem(), HasNul);
}

QTEST_GUILESS_MAIN(TestMessageMeter)
#include "tst_message_meter.moc"
