// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// Runs one input. Each target defines it; target.cpp calls it for libFuzzer.
void runInput(const std::uint8_t *data, std::size_t size);

} // namespace Fuzz
