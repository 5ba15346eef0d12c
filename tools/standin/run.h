// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Runs the private bus, the service on it, and the command. When the command ends, it ends all started processes and
/// returns the exit code. Call it before any thread starts, without a QCoreApplication.
int run(const RunOptions &options, int argc, char **argv);
