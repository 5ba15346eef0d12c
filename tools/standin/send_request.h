// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Sends a request to a running stand-in, and blocks until the reply. Returns the exit code.
int sendRequest(const ControlRequest &request);
