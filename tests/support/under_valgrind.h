// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

/// Returns whether scripts/valgrind runs this test. valgrind makes programs slow, so a long test shortens itself.
inline bool underValgrind()
{
    return qEnvironmentVariableIsSet("CORVANE_UNDER_VALGRIND");
}
