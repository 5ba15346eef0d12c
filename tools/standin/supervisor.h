// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <functional>
#include <optional>

/**
 * Splits this process, so that nothing remains if it is killed with SIGKILL. Call the function before any thread
 * starts. There are three processes afterwards:
 *
 * - The original process. Shells know its process id. It forwards signals to the supervisor, and the exit code back.
 * - The supervisor, its child, in a session of its own: neither Ctrl-C nor a signal for the process group reaches it.
 * - The stand-in, the child of the supervisor, in the session and the process group of the original process.
 *
 * The child of a killed process gets SIGTERM. All processes that the stand-in starts are descendants of the supervisor,
 * orphans included. When the stand-in has ended for any reason, the supervisor ends the descendants that are left, and
 * calls \a cleanUp.
 *
 * Returns nothing in the stand-in, and the exit code in the original process. Does not return in the supervisor.
 */
std::optional<int> supervise(const std::function<void()> &cleanUp);
