// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/qglobal.h>

/// \file
/// The export macro of the library.

/// Exports a symbol from the shared library. All other symbols are hidden.
#if defined(CORVANE_BUILD)
#define CORVANE_EXPORT Q_DECL_EXPORT
#else
#define CORVANE_EXPORT Q_DECL_IMPORT
#endif
