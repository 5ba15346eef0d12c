// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QString>

/// \file
/// The version of the headers. The build system reads it from this file.

/// The first number of the version. It changes with the ABI of the library.
#define CORVANE_VERSION_MAJOR 1
/// The second number of the version. It changes when functions are added.
#define CORVANE_VERSION_MINOR 0
/// The third number of the version.
#define CORVANE_VERSION_PATCH 0

/// Evaluates to true if the version of the headers is the given one or later.
#define CORVANE_VERSION_AT_LEAST(major, minor, patch)                                                                  \
    (CORVANE_VERSION_MAJOR > (major)                                                                                   \
     || (CORVANE_VERSION_MAJOR == (major)                                                                              \
         && (CORVANE_VERSION_MINOR > (minor)                                                                           \
             || (CORVANE_VERSION_MINOR == (minor) && CORVANE_VERSION_PATCH >= (patch)))))

/// The classes and functions of the library. The header of a class has its name, such as Corvane/IntentsInvoker.
namespace Corvane {

/// Returns the version of the library in the running process, such as "1.0.0". The macros give the version of the
/// headers that a program was compiled with.
CORVANE_EXPORT QString versionString();

} // namespace Corvane
