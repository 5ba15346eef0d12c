// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/error.h>

#include <patience.h>

#include <QtCore/QMetaProperty>
#include <QtTest/QtTest>

#include <type_traits>

using Corvane::Error;

static_assert(!std::is_polymorphic_v<Error> && std::is_standard_layout_v<Error>);
static_assert(sizeof(Error) == 2 * sizeof(void *)); // the code and the message

class TestErrorGadget : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void propertiesAreRead();
    void propertiesAreReadOnly();
};

void TestErrorGadget::propertiesAreRead()
{
    const QVariant value = QVariant::fromValue(Error(Error::HandlerFailed, "text"));
    const QMetaObject *const meta = QMetaType::metaObjectForType(value.userType());
    QVERIFY(meta);
    QCOMPARE(meta->className(), "Corvane::Error");
    const auto read = [meta, &value](const char *name) {
        return meta->property(meta->indexOfProperty(name)).readOnGadget(value.constData());
    };
    QCOMPARE(read("code"), QVariant(3));
    QCOMPARE(read("message"), QVariant("text"));
}

void TestErrorGadget::propertiesAreReadOnly()
{
    const QMetaObject &meta = Error::staticMetaObject;
    QCOMPARE(meta.propertyCount(), 2);
    for (int i = 0; i < meta.propertyCount(); ++i) {
        QVERIFY(meta.property(i).isReadable());
        QVERIFY(!meta.property(i).isWritable());
        QVERIFY(!meta.property(i).isResettable());
    }
}

QTEST_GUILESS_MAIN(TestErrorGadget)
#include "tst_error_gadget.moc"
