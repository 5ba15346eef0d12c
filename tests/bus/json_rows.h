// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtTest/QtTest>

const QString UnknownType = QStringLiteral("Unknown JSON value type");
const QString ArrayOfArrays = QStringLiteral("JSON array of arrays are not supported");

/// Adds rows of JSON values. A value has the same form alone, as a parameter and as a hint. The columns are the value,
/// its D-Bus signature, the text of the received value, and the warnings about omitted parts.
inline void addJsonRows()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("arrives");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *json, const char *signature, const char *arrives,
                        const QStringList &warnings = {}) {
        QTest::newRow(json) << QByteArray(json) << signature << arrives << warnings;
    };
    row("true", "b", "true");
    row("7", "d", "7.0");
    row("0.5", "d", "0.5");
    row("0", "d", "0.0");
    row("-9007199254740993", "d", "-9007199254740992.0");
    row(R"("")", "s", "''");
    row(R"("žluťoučký 🐎")", "s", "'žluťoučký 🐎'");

    row("[]", "av", "@av []");
    row("[true, false]", "ab", "[true, false]");
    row("[1, 2, 3]", "ad", "[1.0, 2.0, 3.0]");
    row(R"(["x", "y"])", "as", "['x', 'y']");
    row(R"([{"a": 1}, {}])", "aa{sv}", "[{'a': <1.0>}, {}]");
    row(R"([1, "x"])", "av", "[<1.0>, <'x'>]");
    row("[1, [2, 3]]", "av", "[<1.0>, <[<2.0>, <3.0>]>]");
    row("[1, [[2], [3]]]", "av", "[<1.0>, <[<[<2.0>]>, <[<3.0>]>]>]");
    row(R"([1, {"b": [2]}])", "av", "[<1.0>, <{'b': <[<2.0>]>}>]");
    row(R"([1, {"b": [[2]]}])", "av", "[<1.0>, <{'b': <[<[<2.0>]>]>}>]");
    row("[1, [], {}]", "av", "[<1.0>, <@av []>, <@a{sv} {}>]");

    row("{}", "a{sv}", "@a{sv} {}");
    row(R"({"": "x"})", "a{sv}", "{'': <'x'>}");
    row(R"({"b": {"c": 1}})", "a{sv}", "{'b': <{'c': <1.0>}>}");
    row(R"({"a": [true], "b": [1], "c": ["x"], "d": [{}], "e": [], "f": {"g": {"h": "x"}}})", "a{sv}",
        "{'a': <[true]>, 'b': <[1.0]>, 'c': <['x']>, 'd': <[@a{sv} {}]>, 'e': <@av []>, 'f': <{'g': <{'h': <'x'>}>}>}");

    // D-Bus cannot represent a null. Arrays of arrays are omitted, except inside a mixed array.
    row(R"({"a": null})", "a{sv}", "@a{sv} {}", {UnknownType});
    row(R"({"a": 1, "b": null, "c": "x"})", "a{sv}", "{'a': <1.0>, 'c': <'x'>}", {UnknownType});
    row(R"({"a": [null, null], "b": 1})", "a{sv}", "{'b': <1.0>}", {UnknownType});
    row(R"({"a": [[1], [2]], "b": 1})", "a{sv}", "{'b': <1.0>}", {ArrayOfArrays});
    row("[1, null]", "av", "[<1.0>]", {UnknownType});
    row(R"([null, "x", null])", "av", "[<'x'>]", {UnknownType, UnknownType});
    row(R"([1, [null], {"b": null}])", "av", "[<1.0>, <@av []>, <@a{sv} {}>]", {UnknownType, UnknownType});
    row(R"([{"b": null}, {"c": 1}])", "aa{sv}", "[@a{sv} {}, {'c': <1.0>}]", {UnknownType});
}
