// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

class QDBusError;

namespace Corvane {

/// The bus's error as ours; no error, or one without a name, gives success. Everything without a code is Failed.
Error errorFromDBusError(const QDBusError &error);

} // namespace Corvane
