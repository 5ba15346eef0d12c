// SPDX-License-Identifier: BSD-3-Clause
#include <DBus/types.h>

#include <patience.h>

#include <QtDBus/QDBusMetaType>
#include <QtTest/QtTest>

#include <functional>
#include <type_traits>

Q_DECLARE_METATYPE(std::function<void(QDBusArgument &)>)

using namespace Corvane;

class TestRecordTypes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void shortNamesAreAliases_data();
    void shortNamesAreAliases();
    void singleTasksHaveNoShortName();
    void applicationStateIsAnEnumerationOfFourBytes();
    void signatures_data();
    void signatures();
    void recordsWriteIntoAnyArgument_data();
    void recordsWriteIntoAnyArgument();
    void applicationStateCannotBeMarshalled();
    void registeringAgainChangesNothing();
};

void TestRecordTypes::initTestCase()
{
    QCOMPARE(QMetaType::type("TaskState"), int(QMetaType::UnknownType));
    QCOMPARE(QMetaType::type("ApplicationState"), int(QMetaType::UnknownType));
    registerRecordTypes();
}

void TestRecordTypes::shortNamesAreAliases_data()
{
    QTest::addColumn<QByteArray>("shortName");
    QTest::addColumn<QByteArray>("fullName");

    for (const char *record : {"RunningApplication", "RunningService", "TaskState"})
        QTest::newRow(record) << QByteArray(record) << QByteArray("Corvane::") + record;
    for (const char *record : {"RunningApplication", "RunningService", "TaskState", "AvailableTask", "ActiveTask"}) {
        QTest::addRow("vector of %s", record)
            << QByteArray("QVector<") + record + '>' << QByteArray("QVector<Corvane::") + record + '>';
    }
}

void TestRecordTypes::shortNamesAreAliases()
{
    QFETCH(QByteArray, shortName);
    QFETCH(QByteArray, fullName);

    const int type = QMetaType::type(shortName.constData());
    QVERIFY(type != QMetaType::UnknownType);
    QCOMPARE(type, QMetaType::type(fullName.constData()));
}

void TestRecordTypes::singleTasksHaveNoShortName()
{
    QCOMPARE(QMetaType::type("AvailableTask"), int(QMetaType::UnknownType));
    QCOMPARE(QMetaType::type("ActiveTask"), int(QMetaType::UnknownType));
    QVERIFY(QMetaType::type("Corvane::AvailableTask") != QMetaType::UnknownType);
    QVERIFY(QMetaType::type("Corvane::ActiveTask") != QMetaType::UnknownType);
}

void TestRecordTypes::applicationStateIsAnEnumerationOfFourBytes()
{
    const QMetaType type(QMetaType::type("ApplicationState"));
    QVERIFY(type.isValid());
    QVERIFY(type.flags().testFlag(QMetaType::IsEnumeration));
    QCOMPARE(type.sizeOf(), 4);
    QCOMPARE(QMetaType::type("Corvane::ApplicationState"), int(QMetaType::UnknownType));
}

void TestRecordTypes::signatures_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("signature");

    const auto row = [](int type, const char *signature) {
        QTest::newRow(QMetaType::typeName(type)) << type << QByteArray(signature);
    };
    row(qMetaTypeId<TaskState>(), "(sua{sv})");
    row(qMetaTypeId<AvailableTask>(), "(sa{sv})");
    row(qMetaTypeId<ActiveTask>(), "(sia{sv})");
    row(qMetaTypeId<RunningApplication>(), "(siuua{sv})");
    row(qMetaTypeId<RunningService>(), "(ssiua{sv})");
    row(qMetaTypeId<QVector<TaskState>>(), "a(sua{sv})");
    row(qMetaTypeId<QVector<AvailableTask>>(), "a(sa{sv})");
    row(qMetaTypeId<QVector<ActiveTask>>(), "a(sia{sv})");
    row(qMetaTypeId<QVector<RunningApplication>>(), "a(siuua{sv})");
    row(qMetaTypeId<QVector<RunningService>>(), "a(ssiua{sv})");
    row(QMetaType::QJsonObject, "a{sv}");
    row(QMetaType::QJsonArray, "av");
    row(qMetaTypeId<QList<QVariantMap>>(), "aa{sv}");
}

void TestRecordTypes::signatures()
{
    QFETCH(int, type);
    QFETCH(QByteArray, signature);

    QCOMPARE(QByteArray(QDBusMetaType::typeToSignature(type)), signature);
}

void TestRecordTypes::recordsWriteIntoAnyArgument_data()
{
    QTest::addColumn<std::function<void(QDBusArgument &)>>("write");
    QTest::addColumn<QString>("signature");

    const auto row = [](const auto &record, const char *signature) {
        const auto vector = QVector<std::decay_t<decltype(record)>>{record, record};
        const std::function<void(QDBusArgument &)> writeRecord = [record](QDBusArgument &argument) {
            QCOMPARE(&(argument << record), &argument);
        };
        const std::function<void(QDBusArgument &)> writeVector = [vector](QDBusArgument &argument) {
            QCOMPARE(&(argument << vector), &argument);
        };
        QTest::addRow("%s", signature) << writeRecord << QString::fromLatin1(signature);
        QTest::addRow("vector of %s", signature) << writeVector << 'a' + QString::fromLatin1(signature);
    };
    const QString text = "a";
    const QVariantMap properties{{text, 1}, {"b", QVariantMap{{text, text}}}};
    row(TaskState{text, 2, properties}, "(sua{sv})");
    row(AvailableTask{text, properties}, "(sa{sv})");
    row(ActiveTask{text, -1, properties}, "(sia{sv})");
    row(RunningApplication{text, -1, ApplicationState(1), ApplicationState(2), properties}, "(siuua{sv})");
    row(RunningService{text, text, -1, ApplicationState(1), properties}, "(ssiua{sv})");
}

void TestRecordTypes::recordsWriteIntoAnyArgument()
{
    using Write = std::function<void(QDBusArgument &)>;
    QFETCH(Write, write);
    QFETCH(QString, signature);

    QDBusArgument alone;
    write(alone);
    QCOMPARE(alone.currentSignature(), signature);

    QDBusArgument within;
    within.beginStructure();
    write(within);
    within << QString("after");
    write(within);
    within.endStructure();
    QCOMPARE(within.currentSignature(), QString("(%1s%1)").arg(signature));
}

void TestRecordTypes::applicationStateCannotBeMarshalled()
{
    QVERIFY(!QDBusMetaType::typeToSignature(QMetaType::type("ApplicationState")));
}

void TestRecordTypes::registeringAgainChangesNothing()
{
    const int last = qRegisterMetaType<TestRecordTypes *>();
    const int state = QMetaType::type("ApplicationState");
    registerRecordTypes();
    QCOMPARE(QMetaType::type("ApplicationState"), state);
    QVERIFY(!QMetaType::isRegistered(last + 1));
}

QTEST_GUILESS_MAIN(TestRecordTypes)
#include "tst_record_types.moc"
