// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

namespace Corvane {

/// Makes this process the owner of a name on the session bus. Blocks until the bus has answered.
Error claimBusName(const QString &name);
/// Gives the name up. One that this process does not own is no error. Blocks until the bus has answered.
Error releaseBusName(const QString &name);

} // namespace Corvane
