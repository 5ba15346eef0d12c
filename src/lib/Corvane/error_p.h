// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

class QDBusError;

namespace Corvane {

/// Converts an error of the bus. An invalid error and an error without a name give NoError, an unknown name gives
/// Failed.
Error errorFromDBusError(const QDBusError &error);

} // namespace Corvane
