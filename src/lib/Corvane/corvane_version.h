// SPDX-License-Identifier: BSD-3-Clause
#pragma once

/// \file
/// The version of the headers that a program is compiled against. The build reads it from here.

#define CORVANE_VERSION_MAJOR 1
#define CORVANE_VERSION_MINOR 0
#define CORVANE_VERSION_PATCH 0

/// True if the headers are of the given version or a later one.
#define CORVANE_VERSION_AT_LEAST(major, minor, patch)                                                                  \
    (CORVANE_VERSION_MAJOR > (major)                                                                                   \
     || (CORVANE_VERSION_MAJOR == (major)                                                                              \
         && (CORVANE_VERSION_MINOR > (minor)                                                                           \
             || (CORVANE_VERSION_MINOR == (minor) && CORVANE_VERSION_PATCH >= (patch)))))
