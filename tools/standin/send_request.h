// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Has the stand-in of this session bus do something, and waits until it has. Returns the exit code.
int sendRequest(const ControlRequest &request);
