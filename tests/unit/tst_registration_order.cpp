// SPDX-License-Identifier: BSD-3-Clause
// The order in which the types are registered. Only registerRecordTypes() may register types in this process.
#include <DBus/types.h>

#include <patience.h>

#include <QtDBus/QDBusMetaType>
#include <QtTest/QtTest>

using namespace Corvane;

namespace {

QVector<int> &marshalled()
{
    static QVector<int> types;
    return types;
}

QStringList names(const QVector<int> &types)
{
    QStringList result;
    for (const int type : types)
        result << QString::fromLatin1(QMetaType::typeName(type));
    return result;
}

} // namespace

/// Replaces Qt's function in this program. Only records the type.
void QDBusMetaType::registerMarshallOperators(int type, MarshallFunction write, DemarshallFunction read)
{
    if (write && read)
        marshalled() << type;
}

class TestRegistrationOrder : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void typesGetAscendingNumbers();
    void operatorsAreRegisteredInOrder();
    void secondRunRegistersNothing();
};

void TestRegistrationOrder::typesGetAscendingNumbers()
{
    registerRecordTypes();

    int last = QMetaType::User - 1;
    for (const char *name :
         {"RunningApplication", "QVector<RunningApplication>", "RunningService", "QVector<RunningService>", "TaskState",
          "QVector<TaskState>", "QVector<AvailableTask>", "QVector<ActiveTask>", "ApplicationState"}) {
        const int type = QMetaType::type(name);
        QVERIFY2(type > last, name);
        last = type;
    }
}

void TestRegistrationOrder::operatorsAreRegisteredInOrder()
{
    const QVector<int> expected{
        qMetaTypeId<RunningApplication>(),
        qMetaTypeId<QVector<RunningApplication>>(),
        qMetaTypeId<RunningService>(),
        qMetaTypeId<QVector<RunningService>>(),
        qMetaTypeId<TaskState>(),
        qMetaTypeId<QVector<TaskState>>(),
        qMetaTypeId<AvailableTask>(),
        qMetaTypeId<QVector<AvailableTask>>(),
        qMetaTypeId<ActiveTask>(),
        qMetaTypeId<QVector<ActiveTask>>(),
        QMetaType::QJsonArray,
        QMetaType::QJsonObject,
        QMetaType::QJsonValue,
    };
    QVector<int> actual; // without the types of the library
    for (const int type : qAsConst(marshalled())) {
        if (expected.contains(type))
            actual << type;
    }
    QCOMPARE(names(actual), names(expected));
    QVERIFY(!marshalled().contains(QMetaType::type("ApplicationState")));
}

void TestRegistrationOrder::secondRunRegistersNothing()
{
    const int count = marshalled().size();
    registerRecordTypes();
    QCOMPARE(marshalled().size(), count);
}

QTEST_GUILESS_MAIN(TestRegistrationOrder)
#include "tst_registration_order.moc"
