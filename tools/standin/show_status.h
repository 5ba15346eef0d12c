// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Prints the status of a running stand-in, or ids in it. Returns the exit code.
int showStatus(const StatusOptions &options);
