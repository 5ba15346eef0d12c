// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/runtime_dispatcher.h>

#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <functional>

using namespace Corvane;

extern "C" const char *__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier): the sanitizer calls it
{
    return "leak:libQt5Core.so\nleak:libQt5DBus.so\n"; // QtDBus is not exception-safe
}

namespace {

/// An application that catches the exceptions of handlers.
class Application : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        try {
            return QCoreApplication::notify(receiver, event);
        } catch (const std::bad_function_call &) {
            ++thrown;
            return true;
        }
    }

    static inline int thrown = 0;
};

} // namespace

class TestEmptyHandler : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void emptyHandlerThrowsWhenItsIntentArrives();
};

void TestEmptyHandler::emptyHandlerThrowsWhenItsIntentArrives()
{
    const QString ask = "Ask";
    const QString handleIntent = "HandleIntent";
    const QString body = "('Ask', {'q': <1>})";
    ServicePeer peer;
    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());

    dispatcher->registerIntent(ask, {});
    const int call = peer.beginCall(handleIntent, body, {{"timeout", 1000}});
    QTRY_COMPARE(Application::thrown, 1);
    peer.finishCall(call);

    dispatcher->registerIntent(ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    QVERIFY(peer.call(handleIntent, body).text.startsWith("(a{sv}a{sv})"));
    delete dispatcher;
}

int main(int argc, char **argv)
{
    Application application(argc, argv);
    TestEmptyHandler test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_empty_handler.moc"
