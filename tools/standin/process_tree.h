// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

/// The processes below this one, however deep, and those that they left behind.
namespace ProcessTree {

/// Makes this process the parent of every process below it that loses its own. Once, before the first is started.
void adoptOrphans();

/// Ends them all but \a spared (0 for none), with SIGTERM and, after \a grace milliseconds, SIGKILL. Blocks until all
/// are gone.
void endAll(qint64 spared, int grace);

} // namespace ProcessTree
