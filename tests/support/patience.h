// SPDX-License-Identifier: BSD-3-Clause
// For every test program: Qt waits five seconds for a condition, which is too short for a busy machine under valgrind.
// A condition that holds at once is not waited for either way.
#pragma once

#include <QtTest/QtTest>

/// Milliseconds to wait for an expected event before the test fails.
constexpr int Patience = 120000;

#undef QTRY_VERIFY
#define QTRY_VERIFY(expression) QTRY_VERIFY_WITH_TIMEOUT((expression), Patience)
#undef QTRY_VERIFY2
#define QTRY_VERIFY2(expression, text) QTRY_VERIFY2_WITH_TIMEOUT((expression), text, Patience)
#undef QTRY_COMPARE
#define QTRY_COMPARE(expression, expected) QTRY_COMPARE_WITH_TIMEOUT((expression), expected, Patience)
