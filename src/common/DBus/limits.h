// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace Corvane {

/// The most containers that a message can nest on every bus.
constexpr int MaxLevels = 64;
constexpr char TooDeep[] = "A message cannot nest more than 64 containers";
static_assert(MaxLevels == 64, "TooDeep contains the number");

} // namespace Corvane
