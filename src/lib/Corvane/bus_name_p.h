// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

namespace Corvane {

/// Claims a name on the session bus for this process. Blocks until the bus replies.
Error claimBusName(const QString &name);
/// Releases the name. It is no error if this process does not own the name. Blocks until the bus replies.
Error releaseBusName(const QString &name);

} // namespace Corvane
