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
    const QString root = QStringLiteral(CORVANE_SERVICE_ROOT);
    const QString path = QLatin1Char('/') + QString(root).replace(QLatin1Char('.'), QLatin1Char('/'));

    QCOMPARE(QString(Names::ServiceRoot), root);
    QCOMPARE(QString(Names::ErrorPrefix), root + QStringLiteral(".Error."));
    QCOMPARE(QString::fromLatin1(Names::Intents.interface), root + QStringLiteral(".Intents1"));
    QCOMPARE(QString(Names::Intents.path()), path + QStringLiteral("/Intents1"));
    QCOMPARE(QString::fromLatin1(Names::IntentHandler.interface), root + QStringLiteral(".IntentHandler1"));
    QCOMPARE(QString(Names::IntentHandler.path()), path + QStringLiteral("/IntentHandler1"));
    QCOMPARE(QString::fromLatin1(Names::Lifecycle.interface), root + QStringLiteral(".Lifecycle1"));
    QCOMPARE(QString(Names::Lifecycle.path()), path + QStringLiteral("/Lifecycle1"));
    QCOMPARE(QString::fromLatin1(Names::MemoryPressure.interface), root + QStringLiteral(".MemoryPressure1"));
    QCOMPARE(QString(Names::MemoryPressure.path()), path + QStringLiteral("/MemoryPressure1"));
    QCOMPARE(QString::fromLatin1(Names::Tasks.interface), root + QStringLiteral(".Tasks1"));
    QCOMPARE(QString(Names::Tasks.path()), path + QStringLiteral("/Tasks1"));
    QCOMPARE(QString::fromLatin1(Names::StandIn.interface), root + QStringLiteral(".StandIn1"));
    QCOMPARE(QString(Names::StandIn.path()), path + QStringLiteral("/StandIn1"));

    static_assert(Names::Intents.pathText[0] == '/', "derived at compile time");
}

QTEST_GUILESS_MAIN(TestNames)
#include "tst_names.moc"
