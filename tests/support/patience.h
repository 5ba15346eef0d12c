// SPDX-License-Identifier: BSD-3-Clause
// For every test program: Qt waits five seconds for what is to come true, which is too short for a busy machine under
// valgrind. What comes true at once is not waited for either way.
#pragma once

#include <QtTest/QtTest>

#undef QTRY_VERIFY
#define QTRY_VERIFY(expression) QTRY_VERIFY_WITH_TIMEOUT((expression), 60000)
#undef QTRY_VERIFY2
#define QTRY_VERIFY2(expression, text) QTRY_VERIFY2_WITH_TIMEOUT((expression), text, 60000)
#undef QTRY_COMPARE
#define QTRY_COMPARE(expression, expected) QTRY_COMPARE_WITH_TIMEOUT((expression), expected, 60000)
