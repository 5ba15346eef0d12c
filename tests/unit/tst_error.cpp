// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/error_p.h>
#include <DBus/names.h>

#include <patience.h>

#include <QtDBus/QDBusError>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

#include <type_traits>
#include <utility>

using Corvane::Error;

static_assert(std::is_same_v<std::underlying_type_t<Error::Code>, int>);
static_assert(std::is_convertible_v<Error, bool>);
static_assert(!std::is_polymorphic_v<Error>);
static_assert(std::is_copy_constructible_v<Error> && std::is_copy_assignable_v<Error>);
static_assert(std::is_same_v<decltype(std::declval<const Error &>().message()), QString>);

class TestError : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void defaultIsSuccess();
    void codeAndMessageAreStored();
    void errorConvertsToBool();
    void comparesWithCodes();
    void comparesWithErrors();
    void codesHaveTheirNumbers();
    void busErrorsBecomeCodes_data();
    void busErrorsBecomeCodes();
    void defaultBusErrorIsSuccess();
    void busErrorOfTypeNoErrorIsSuccess();
    void busErrorWithoutNameIsSuccess();
    void isMetaType();
};

void TestError::defaultIsSuccess()
{
    const Error error;
    QCOMPARE(error.code(), Error::NoError);
    QCOMPARE(error.message(), QString());
    QVERIFY(!error.isError());
    QVERIFY(!error);
}

void TestError::codeAndMessageAreStored()
{
    const Error error(Error::HandlerFailed, "m");
    QCOMPARE(error.code(), Error::HandlerFailed);
    QCOMPARE(error.message(), QString("m"));
    QVERIFY(error.isError());
    QVERIFY(error);

    const Error unknown(Error::Code(300), {}); // an unknown code is an error
    QCOMPARE(int(unknown.code()), 300);
    QVERIFY(unknown);
}

void TestError::errorConvertsToBool()
{
    const bool failed = Error(Error::Failed, QString());
    QVERIFY(failed);
    const bool succeeded = Error(Error::NoError, "m");
    QVERIFY(!succeeded);
}

void TestError::comparesWithCodes()
{
    const Error error(Error::InvalidArgs, "m");
    QVERIFY(error == Error::InvalidArgs);
    QVERIFY(Error::InvalidArgs == error);
    QVERIFY(!(error != Error::InvalidArgs));
    QVERIFY(!(Error::InvalidArgs != error));
    QVERIFY(error != Error::Failed); // Error::Failed is 1, like true
    QVERIFY(Error::Failed != error);
    QVERIFY(!(error == Error::Failed));
    QVERIFY(!(Error::Failed == error));
    QVERIFY(Error(Error::NoError, "m") == Error::NoError);
}

void TestError::comparesWithErrors()
{
    const Error error(Error::InvalidArgs, "m");
    QVERIFY(error == Error(Error::InvalidArgs, "m"));
    QVERIFY(!(error != Error(Error::InvalidArgs, "m")));
    QVERIFY(error != Error(Error::InvalidArgs, "n"));
    QVERIFY(error != Error(Error::Failed, "m"));
    QVERIFY(!(error == Error(Error::Failed, "m")));
}

void TestError::codesHaveTheirNumbers()
{
    const QVector<Error::Code> codes{Error::NoError,
                                     Error::Failed,
                                     Error::HandlerNotFound,
                                     Error::HandlerFailed,
                                     Error::InvalidArgs,
                                     Error::NotSupported,
                                     Error::AccessDenied,
                                     Error::ProcessNotHandled,
                                     Error::ApplicationNotRunning,
                                     Error::ApplicationAlreadyRunning,
                                     Error::ApplicationAlreadyLaunching};
    for (int number = 0; number < codes.size(); ++number)
        QCOMPARE(int(codes[number]), number);
}

void TestError::busErrorsBecomeCodes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("code");

    const QString service = Corvane::Names::ErrorPrefix;
    const QString standard = "org.freedesktop.DBus.Error.";
    const struct
    {
        const char *name;
        int serviceCode;
        int standardCode;
    } rows[] = {
        {"NoError", 0, 1},
        {"Failed", 1, 1},
        {"HandlerNotFound", 2, 1},
        {"HandlerFailed", 3, 1},
        {"InvalidArgs", 1, 4},
        {"NotSupported", 1, 5},
        {"AccessDenied", 1, 6},
        {"ProcessNotHandled", 7, 1},
        {"ApplicationNotRunning", 8, 1},
        {"ApplicationAlreadyRunning", 9, 1},
        {"ApplicationAlreadyLaunching", 10, 1},
        {"ServiceUnknown", 1, 1},
        {"NoReply", 1, 1},
        {"UnknownMethod", 1, 1},
        {"handlernotfound", 1, 1},
        {"HandlerNotFound.More", 1, 1},
    };
    for (const auto &row : rows) {
        const QString name = row.name;
        QTest::addRow("service %s", row.name) << service + name << row.serviceCode;
        QTest::addRow("standard %s", row.name) << standard + name << row.standardCode;
    }
    QTest::newRow("foreign name") << "com.example.Error.HandlerNotFound" << 1;
    QTest::newRow("service prefix in another case") << service.toUpper() + "HandlerNotFound" << 1;
    QTest::newRow("standard prefix in another case") << "org.freedesktop.dbus.Error.AccessDenied" << 1;
    QTest::newRow("service prefix elsewhere") << "x." + service + "HandlerNotFound" << 1;
    // If the name begins with the prefix, each occurrence of the prefix is removed.
    QTest::newRow("service prefix twice") << service + service + "HandlerNotFound" << 2;
    QTest::newRow("service prefix again within") << service + "Handler" + service + "NotFound" << 2;
    QTest::newRow("service prefix again at the end") << service + "NoError" + service << 0;
    QTest::newRow("standard prefix twice") << standard + standard + "AccessDenied" << 6;
    QTest::newRow("standard prefix again within") << standard + "Access" + standard + "Denied" << 6;
    QTest::newRow("standard prefix behind the service's") << service + standard + "AccessDenied" << 1;
    QTest::newRow("service prefix behind the standard one") << standard + service + "HandlerFailed" << 1;
    QTest::newRow("service prefix again in another case") << service + service.toUpper() + "HandlerNotFound" << 1;
    QTest::newRow("service prefix alone") << service << 1;
    QTest::newRow("standard prefix alone") << standard << 1;
    QTest::newRow("service prefix without its dot") << service.chopped(1) << 1;
}

void TestError::busErrorsBecomeCodes()
{
    QFETCH(QString, name);
    QFETCH(int, code);

    const Error error = Corvane::errorFromDBusError(QDBusMessage::createError(name, "the bus's own words"));
    QCOMPARE(int(error.code()), code);
    QCOMPARE(error.message(), QString("the bus's own words"));
}

void TestError::defaultBusErrorIsSuccess()
{
    const Error error = Corvane::errorFromDBusError(QDBusError());
    QCOMPARE(error.code(), Error::NoError);
    QCOMPARE(error.message(), QString());
}

void TestError::busErrorOfTypeNoErrorIsSuccess()
{
    const QDBusError none(QDBusError::NoError, "m");
    QVERIFY(!none.isValid());
    QVERIFY(!none.name().isEmpty());
    const Error error = Corvane::errorFromDBusError(none);
    QCOMPARE(error.code(), Error::NoError);
    QCOMPARE(error.message(), QString());
}

void TestError::busErrorWithoutNameIsSuccess()
{
    QDBusError nameless(QDBusError::AccessDenied, "m");
    const QDBusError taken = std::move(nameless); // Qt moves the name but copies the type
    QVERIFY(nameless.isValid()); // NOLINT(bugprone-use-after-move)
    QVERIFY(nameless.name().isEmpty());
    QCOMPARE(Corvane::errorFromDBusError(nameless).code(), Error::NoError);
    QCOMPARE(Corvane::errorFromDBusError(nameless).message(), QString());
    QCOMPARE(Corvane::errorFromDBusError(taken).code(), Error::AccessDenied);
}

void TestError::isMetaType()
{
    const QVariant variant = QVariant::fromValue(Error(Error::Failed, "m"));
    QCOMPARE(variant.typeName(), "Corvane::Error");
    QCOMPARE(variant.value<Error>().message(), QString("m"));
}

QTEST_GUILESS_MAIN(TestError)
#include "tst_error.moc"
