// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

/// Sends a request to the stand-in on this session bus, and blocks until the reply. Returns the exit code.
int sendRequest(const ControlRequest &request);
