// SPDX-License-Identifier: BSD-3-Clause
#include <memory_pressure.h>
#include <patience.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <unistd.h>

class TestKernelPressure : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void levelFollowsFromTheLastTenSeconds_data();
    void levelFollowsFromTheLastTenSeconds();
    void levelIsReadAfterSubscribing();
    void setLevelOverridesTheKernel();
    void missingKernelPressureIsLogged();

private:
    void write(const QByteArray &content)
    {
        QFile file(source());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    QString source() const { return directory.filePath("memory"); }

    QTemporaryDir directory;
};

namespace {

const char *const Quiet = "some avg10=0.00 avg60=0.00 avg300=0.00 total=0\n"
                          "full avg10=0.00 avg60=0.00 avg300=0.00 total=0\n";
const char *const Low = "some avg10=10.00 avg60=0.00 avg300=0.00 total=1\n"
                        "full avg10=9.99 avg60=0.00 avg300=0.00 total=1\n";
const char *const Critical = "some avg10=40.00 avg60=0.00 avg300=0.00 total=1\n"
                             "full avg10=10.00 avg60=0.00 avg300=0.00 total=1\n";

} // namespace

void TestKernelPressure::levelFollowsFromTheLastTenSeconds_data()
{
    QTest::addColumn<QByteArray>("pressure");
    QTest::addColumn<int>("level");

    QTest::newRow("quiet") << QByteArray(Quiet) << 0;
    QTest::newRow("just not low") << QByteArray("some avg10=9.99 avg60=90.00 avg300=90.00 total=9\n"
                                                "full avg10=0.00 avg60=90.00 avg300=90.00 total=9\n")
                                  << 0;
    QTest::newRow("low") << QByteArray(Low) << 100;
    QTest::newRow("critical") << QByteArray(Critical) << 200;
    QTest::newRow("everything") << QByteArray("some avg10=100.00 avg60=0\nfull avg10=100.00 avg60=0\n") << 200;
    QTest::newRow("no line for all") << QByteArray("some avg10=50.00 avg60=0.00 avg300=0.00 total=0\n") << 100;
    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("something else") << QByteArray("some\nfull avg10=\nfull avg10=x") << 0;
}

void TestKernelPressure::levelFollowsFromTheLastTenSeconds()
{
    QFETCH(QByteArray, pressure);
    QFETCH(int, level);

    QCOMPARE(MemoryPressure::levelOf(pressure), level);
}

void TestKernelPressure::levelIsReadAfterSubscribing()
{
    write(Low);
    MemoryPressure pressure(source());
    QCOMPARE(pressure.level(), 0);
    pressure.Subscribe();
    QCOMPARE(pressure.level(), 100);
    write(Critical);
    QTRY_COMPARE(pressure.level(), 200);
    write(Quiet);
    QTRY_COMPARE(pressure.level(), 0);
}

void TestKernelPressure::setLevelOverridesTheKernel()
{
    write(Low);
    MemoryPressure pressure(source());
    pressure.setLevel(-3);
    pressure.Subscribe();
    QCOMPARE(pressure.level(), -3);
    pressure.follow();
    QCOMPARE(pressure.level(), 100);
    pressure.setLevel(200);
    QCOMPARE(pressure.level(), 200);
    QVERIFY(QFile::remove(source()));
    pressure.follow();
    QCOMPARE(pressure.level(), 0);
}

void TestKernelPressure::missingKernelPressureIsLogged()
{
    QTemporaryFile errors;
    QVERIFY(errors.open());
    const int standardError = ::dup(STDERR_FILENO);
    ::dup2(errors.handle(), STDERR_FILENO);
    MemoryPressure pressure("/nonexistent/memory");
    pressure.Subscribe();
    pressure.Subscribe(); // the warning is logged once
    ::dup2(standardError, STDERR_FILENO);
    ::close(standardError);
    QCOMPARE(pressure.level(), 0);
    errors.seek(0);
    QCOMPARE(
        errors.readAll(),
        QByteArray("corvane-standin: This kernel does not report its memory pressure (/nonexistent/memory: No such "
                   "file or directory). The level stays normal; try \"corvane-standin set memory critical\".\n"));
}

QTEST_GUILESS_MAIN(TestKernelPressure)
#include "tst_kernel_pressure.moc"
