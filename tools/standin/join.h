// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Replaces this process by the command, on the bus of a running stand-in. Returns an exit code if that fails.
int join(const JoinOptions &options);
