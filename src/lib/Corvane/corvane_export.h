// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/qglobal.h>

/// Marks what the shared library offers to applications; all else is hidden.
#if defined(CORVANE_BUILD)
#define CORVANE_EXPORT Q_DECL_EXPORT
#else
#define CORVANE_EXPORT Q_DECL_IMPORT
#endif
