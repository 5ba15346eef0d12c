// SPDX-License-Identifier: BSD-3-Clause
#include <DBus/types.h>

#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingReply>
#include <QtDBus/QDBusVariant>
#include <QtTest/QtTest>

using namespace Corvane;

class TestRecordsOnBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void taskState();
    void availableTask();
    void activeTask();
    void runningApplication();
    void runningService();
    void emptyVector();
    void vectorIsClearedFirst();
    void nestedValuesStayArguments();

private:
    template<typename T>
    QDBusArgument argument(const T &value, const char *signature);
    template<typename T>
    T echoed(const T &value, const char *signature)
    {
        return qdbus_cast<T>(argument(value, signature));
    }

    ServicePeer peer;
    const QVariantMap properties{{"p", 7}};
};

void TestRecordsOnBus::initTestCase()
{
    registerRecordTypes();
}

/// Sends the value, whose D-Bus type must be \a signature, to the peer, and returns the value in the reply.
template<typename T>
QDBusArgument TestRecordsOnBus::argument(const T &value, const char *signature)
{
    const QString root = CORVANE_SERVICE_ROOT;
    QDBusMessage call =
        QDBusMessage::createMethodCall(root, '/' + QString(root).replace('.', '/') + "/Test", root + ".Test", "Echo");
    call << QVariant::fromValue(QDBusVariant(QVariant::fromValue(value)));
    QDBusPendingReply<QDBusVariant> reply = QDBusConnection::sessionBus().asyncCall(call);
    if (!QTest::qWaitFor([&reply] { return reply.isFinished(); }, Patience) || reply.isError()) {
        QTest::qFail(qUtf8Printable(reply.error().message()), __FILE__, __LINE__);
        return {};
    }
    const auto result = reply.value().variant().template value<QDBusArgument>();
    if (result.currentSignature() != signature)
        QTest::qFail(qUtf8Printable(result.currentSignature()), __FILE__, __LINE__);
    return result;
}

void TestRecordsOnBus::taskState()
{
    const QVector<TaskState> echo =
        echoed(QVector<TaskState>{{"a", 2, {}}, {"b", 4294967295U, properties}}, "a(sua{sv})");
    QCOMPARE(echo.size(), 2);
    QCOMPARE(echo[0].taskId, QString("a"));
    QCOMPARE(echo[0].state, 2U);
    QCOMPARE(echo[0].properties, QVariantMap());
    QCOMPARE(echo[1].taskId, QString("b"));
    QCOMPARE(echo[1].state, 4294967295U);
    QCOMPARE(echo[1].properties, properties);

    QCOMPARE(echoed(TaskState{"a", 2, {}}, "(sua{sv})").taskId, QString("a"));
}

void TestRecordsOnBus::availableTask()
{
    const auto echo = echoed(QVector<AvailableTask>{{"a", properties}}, "a(sa{sv})");
    QCOMPARE(echo.size(), 1);
    QCOMPARE(echo[0].taskId, QString("a"));
    QCOMPARE(echo[0].properties, properties);
}

void TestRecordsOnBus::activeTask()
{
    const auto echo = echoed(QVector<ActiveTask>{{"a", -5, properties}}, "a(sia{sv})");
    QCOMPARE(echo.size(), 1);
    QCOMPARE(echo[0].taskId, QString("a"));
    QCOMPARE(echo[0].processId, -5);
    QCOMPARE(echo[0].properties, properties);
}

void TestRecordsOnBus::runningApplication()
{
    const auto echo =
        echoed(QVector<RunningApplication>{{"a", -5, ApplicationState(4294967295U), ApplicationState(3), properties}},
               "a(siuua{sv})");
    QCOMPARE(echo.size(), 1);
    QCOMPARE(echo[0].instanceId, QString("a"));
    QCOMPARE(echo[0].processId, -5);
    QCOMPARE(quint32(echo[0].state), 4294967295U);
    QCOMPARE(quint32(echo[0].previousState), 3U);
    QCOMPARE(echo[0].properties, properties);
}

void TestRecordsOnBus::runningService()
{
    const auto echo =
        echoed(QVector<RunningService>{{"a", "b", -5, ApplicationState(300), properties}}, "a(ssiua{sv})");
    QCOMPARE(echo.size(), 1);
    QCOMPARE(echo[0].serviceId, QString("a"));
    QCOMPARE(echo[0].instanceId, QString("b"));
    QCOMPARE(echo[0].processId, -5);
    QCOMPARE(quint32(echo[0].state), 300U);
    QCOMPARE(echo[0].properties, properties);
}

void TestRecordsOnBus::emptyVector()
{
    QVERIFY(echoed(QVector<TaskState>(), "a(sua{sv})").isEmpty());
}

void TestRecordsOnBus::vectorIsClearedFirst()
{
    const QVector<TaskState> sent{{"new", 1, {}}};
    QVector<TaskState> read{{"old", 2, properties}, {"older", 3, {}}};
    const QDBusArgument source = argument(sent, "a(sua{sv})");
    QCOMPARE(&(source >> read), &source);
    QCOMPARE(read.size(), 1);
    QCOMPARE(read[0].taskId, QString("new"));

    TaskState state{"old", 2, properties};
    const QDBusArgument single = argument(sent[0], "(sua{sv})");
    QCOMPARE(&(single >> state), &single);
    QCOMPARE(state.taskId, QString("new"));
    QCOMPARE(state.state, 1U);
    QCOMPARE(state.properties, QVariantMap());
}

void TestRecordsOnBus::nestedValuesStayArguments()
{
    const QVariantMap nested{{"inner", properties}};
    const TaskState echo = echoed(TaskState{"a", 0, nested}, "(sua{sv})");
    const QVariant inner = echo.properties.value("inner");
    QCOMPARE(inner.userType(), qMetaTypeId<QDBusArgument>());
    QCOMPARE(qdbus_cast<QVariantMap>(inner), properties);
}

QTEST_GUILESS_MAIN(TestRecordsOnBus)
#include "tst_records_on_bus.moc"
