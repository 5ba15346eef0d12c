// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/corvane_version.h>

#include <patience.h>

#include <QtTest/QtTest>

class TestVersion : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void libraryHasTheVersionOfTheHeaders();
};

void TestVersion::libraryHasTheVersionOfTheHeaders()
{
    const QStringList numbers{QString::number(CORVANE_VERSION_MAJOR), QString::number(CORVANE_VERSION_MINOR),
                              QString::number(CORVANE_VERSION_PATCH)};
    QCOMPARE(Corvane::versionString(), numbers.join('.'));
}

QTEST_GUILESS_MAIN(TestVersion)
#include "tst_version.moc"
