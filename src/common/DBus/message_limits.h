// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace Corvane {

/// The maximum number of nested containers in a message, empty ones included, that every bus accepts. dbus-daemon
/// accepts one more.
constexpr int MaxLevels = 63;
constexpr char TooDeep[] = "A message cannot nest more than 63 containers";
static_assert(MaxLevels == 63, "TooDeep contains the number");

} // namespace Corvane
