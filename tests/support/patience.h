// SPDX-License-Identifier: BSD-3-Clause
// Included by every test program. This file gives the QTRY_ macros of QtTest a longer timeout, because five seconds are
// too short on a busy machine and under valgrind. Qt 5 has no setting for this timeout. It does not slow down a test
// that passes: the macros return as soon as the condition is true.
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
