// SPDX-License-Identifier: BSD-3-Clause
#include <Core/object_builder.h>
#include <Core/types.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>

#include <QtTest/QtTest>

using namespace Core;

namespace {

const QString ArrayOfArrays = QStringLiteral("JSON array of arrays are not supported");
const QString UnknownType = QStringLiteral("Unknown JSON value type");

/// Returns the value as text with all types, because QVariant treats 1, 1.0 and "1" as equal.
QString described(const QVariant &value)
{
    QStringList parts;
    if (value.userType() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            parts << it.key() + ':' + described(it.value());
    } else if (value.userType() == qMetaTypeId<QList<QVariantMap>>()) {
        const auto list = value.value<QList<QVariantMap>>();
        for (const QVariantMap &element : list)
            parts << described(element);
    } else if (value.canConvert<QVariantList>() && value.userType() != QMetaType::QString) {
        const auto list = value.value<QVariantList>();
        for (const QVariant &element : list)
            parts << described(element);
    } else {
        return QString("%1 %2").arg(value.typeName(), value.toString()).trimmed();
    }
    return QString("%1{%2}").arg(value.typeName(), parts.join(','));
}

} // namespace

class TestTypes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void arraysAreConverted_data();
    void arraysAreConverted();
    void objectsAreConverted_data();
    void objectsAreConverted();
    void objectsAreBuilt_data();
    void objectsAreBuilt();
    void objectsOfManyMembersAreBuiltInOrder();
};

void TestTypes::arraysAreConverted_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *json, const char *expected, const QStringList &warnings = {}) {
        QTest::newRow(json) << QByteArray(json) << QString::fromLatin1(expected) << warnings;
    };
    row("[]", "QVariantList{}");
    row("[true, false]", "QList<bool>{bool true,bool false}");
    row("[1, 2.5]", "QList<double>{double 1,double 2.5}");
    row(R"(["a", "b"])", "QStringList{QString a,QString b}");
    row(R"([{"a": 1}, {}])", "QList<QVariantMap>{QVariantMap{a:double 1},QVariantMap{}}");
    row(R"([{"a": [1]}])", "QList<QVariantMap>{QVariantMap{a:QVariantList{double 1}}}");
    row("[true, 1]", "QVariantList{bool true,double 1}");
    row(R"([1, "x"])", "QVariantList{double 1,QString x}");
    row(R"([1, [2, 3], {"a": [4]}])",
        "QVariantList{double 1,QVariantList{double 2,double 3},QVariantMap{a:QVariantList{double 4}}}");
    row("[1, null]", "QVariantList{double 1,std::nullptr_t}");
    row("[null, 1]", "QVariantList{std::nullptr_t,double 1}");
    row("[[1], 1]", "QVariantList{QVariantList{double 1},double 1}");
    row("[1, 2, 3, [true]]", "QVariantList{double 1,double 2,double 3,QVariantList{bool true}}");
    row("[[], []]", "", {ArrayOfArrays});
    row("[[1], [2]]", "", {ArrayOfArrays});
    row("[null]", "", {UnknownType});
    row("[null, null]", "", {UnknownType});
}

void TestTypes::arraysAreConverted()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    QFETCH(QStringList, warnings);

    MessageLog log;
    const QVariant variant = Types::jsonArrayToVariant(fromJson(json).toArray());
    QCOMPARE(variant.isValid(), !expected.isEmpty());
    QCOMPARE(described(variant), expected);
    QCOMPARE(log.takeWarnings(), warnings);
    QCOMPARE(variant.value<QVariantList>().size(), // Qt converts any registered list
             variant.isValid() ? fromJson(json).toArray().size() : 0);
}

void TestTypes::objectsAreConverted_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *json, const char *expected, const QStringList &warnings = {}) {
        QTest::newRow(json) << QByteArray(json) << QString::fromLatin1(expected) << warnings;
    };
    row("{}", "QVariantMap{}");
    row(R"({"files": ["a", "b"]})", "QVariantMap{files:QStringList{QString a,QString b}}");
    row(R"({"o": {"a": [1]}})", "QVariantMap{o:QVariantMap{a:QList<double>{double 1}}}");
    row(R"({"t": true, "n": 1, "s": "x"})", "QVariantMap{n:double 1,s:QString x,t:bool true}");
    row(R"({"z": null})", "QVariantMap{z:std::nullptr_t}");
    row(R"({"a": [[1]], "b": 2})", "QVariantMap{a:,b:double 2}", {ArrayOfArrays});
    row(R"({"a": {"b": [null]}})", "QVariantMap{a:QVariantMap{b:}}", {UnknownType});
    row(R"({"a": [null], "b": [[]]})", "QVariantMap{a:,b:}", {UnknownType, ArrayOfArrays});
    row(R"({"o": {}, "p": []})", "QVariantMap{o:QVariantMap{},p:QVariantList{}}");
}

void TestTypes::objectsAreConverted()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, expected);
    QFETCH(QStringList, warnings);

    MessageLog log;
    QCOMPARE(described(Types::jsonObjectToVariantMap(fromJson(json).toObject())), expected);
    QCOMPARE(log.takeWarnings(), warnings);
}

void TestTypes::objectsAreBuilt_data()
{
    QTest::addColumn<QStringList>("keys"); // the value of each key is its position
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("none") << QStringList() << QByteArray("{}");
    QTest::newRow("in order") << QStringList{"a", "b"} << QByteArray(R"({"a": 0, "b": 1})");
    QTest::newRow("out of order") << QStringList{"b", "a"} << QByteArray(R"({"a": 1, "b": 0})");
    QTest::newRow("the last of the same key counts")
        << QStringList{"b", "a", "b", "a"} << QByteArray(R"({"a": 3, "b": 2})");
    QStringList many;
    QByteArray expectedOfMany;
    for (char key = 'b'; key <= 'z'; ++key) {
        many << QString(QLatin1Char(key));
        expectedOfMany += QByteArrayLiteral(", \"") + key + "\": " + QByteArray::number(key == 'c' ? 27 : key - 'b');
    }
    QTest::newRow("many, and some out of order")
        << (many << "z"
                 << "a"
                 << "c")
        << QByteArrayLiteral("{\"a\": 26") + expectedOfMany.replace("\"z\": 24", "\"z\": 25") + '}';
    QTest::newRow("the empty key") << QStringList{QString(), QString(), "a"} << QByteArray(R"({"": 1, "a": 2})");
    QTest::newRow("in order with the same key") << QStringList{"a", "a", "b"} << QByteArray(R"({"a": 1, "b": 2})");
}

void TestTypes::objectsAreBuilt()
{
    QFETCH(QStringList, keys);
    QFETCH(QByteArray, expected);

    ObjectBuilder members;
    for (int i = 0; i < keys.size(); ++i)
        members.insert(keys[i], i);
    QCOMPARE(members.take(), fromJson(expected).toObject());
}

void TestTypes::objectsOfManyMembersAreBuiltInOrder()
{
    ObjectBuilder members;
    for (int i = 0; i < 200000; ++i) {
        const int scattered = int(qint64(i) * 7919 % 200000);
        members.insert(QString::number(scattered), scattered);
    }
    members.insert(QString::fromUtf8("🐎"), 1);
    members.insert(QString(QChar(0xfffd)), 2);
    const QJsonObject object = members.take();
    QCOMPARE(object.size(), 200002);
    for (const char *key : {"0", "1", "99999", "199999"})
        QCOMPARE(object.value(key).toInt(), QByteArray(key).toInt());
    QCOMPARE(object.value(QString::fromUtf8("🐎")).toInt(), 1);
    QCOMPARE(object.value(QString(QChar(0xfffd))).toInt(), 2);
}

QTEST_GUILESS_MAIN(TestTypes)
#include "tst_types.moc"
