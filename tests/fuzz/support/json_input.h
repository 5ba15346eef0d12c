// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// Returns the input as JSON. People can read and write a corpus of such inputs. In a target that calls this function,
/// inputs are mutated as trees: a member is added or removed, a value gets another type or another level. The names
/// and types of the outermost members do not change.
QJsonObject jsonInput(const std::uint8_t *data, std::size_t size);

/// Returns whether the input contains a noncharacter such as U+FFFF. Qt and sd-bus treat them differently.
bool hasNoncharacters(const QJsonObject &input);

} // namespace Fuzz
