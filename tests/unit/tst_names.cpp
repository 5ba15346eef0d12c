// SPDX-License-Identifier: BSD-3-Clause
#include <DBus/names.h>

#include <patience.h>

#include <QtTest/QtTest>

using namespace Corvane;

class TestNames : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void namesFollowFromTheServiceRoot();
};

void TestNames::namesFollowFromTheServiceRoot()
{
    const QString root = CORVANE_SERVICE_ROOT;
    const QString path = '/' + QString(root).replace('.', '/');

    QCOMPARE(QString(Names::ServiceRoot), root);
    QCOMPARE(QString(Names::ErrorPrefix), root + ".Error.");
    QCOMPARE(QString::fromLatin1(Names::Intents.interface), root + ".Intents1");
    QCOMPARE(QString(Names::Intents.path()), path + "/Intents1");
    QCOMPARE(QString::fromLatin1(Names::IntentHandler.interface), root + ".IntentHandler1");
    QCOMPARE(QString(Names::IntentHandler.path()), path + "/IntentHandler1");
    QCOMPARE(QString::fromLatin1(Names::Lifecycle.interface), root + ".Lifecycle1");
    QCOMPARE(QString(Names::Lifecycle.path()), path + "/Lifecycle1");
    QCOMPARE(QString::fromLatin1(Names::MemoryPressure.interface), root + ".MemoryPressure1");
    QCOMPARE(QString(Names::MemoryPressure.path()), path + "/MemoryPressure1");
    QCOMPARE(QString::fromLatin1(Names::Tasks.interface), root + ".Tasks1");
    QCOMPARE(QString(Names::Tasks.path()), path + "/Tasks1");
    QCOMPARE(QString::fromLatin1(Names::StandIn.interface), root + ".StandIn1");
    QCOMPARE(QString(Names::StandIn.path()), path + "/StandIn1");

    static_assert(Names::Intents.pathText[0] == '/', "derived at compile time");
}

QTEST_GUILESS_MAIN(TestNames)
#include "tst_names.moc"
