// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/error.h>

#include <functional>

/// The bus, the service and the signals of this process.
namespace Session {

/// Returns an error that names a way out if there is no session bus.
Corvane::Error busError();
/// Returns an error that names a way out if there is no session bus or no service. Blocks until the bus has replied.
Corvane::Error serviceError();
/// Returns serviceError() instead of an error without its own code, if there is no service.
Corvane::Error explained(const Corvane::Error &error);

/// Calls \a handler from the event loop for each SIGINT and SIGTERM.
void onTermination(const std::function<void()> &handler);

} // namespace Session
