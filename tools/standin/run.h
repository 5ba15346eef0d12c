// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Runs the private bus, the service on it, and the command, until the command ends. Returns the exit code, when
/// nothing of what was started is left.
int run(const RunOptions &options);
