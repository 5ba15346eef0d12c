// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <cstddef>
#include <cstdint>

namespace Fuzz {

/// The input as JSON, so that a corpus can be read and written by people. A target that calls this is given inputs
/// that were changed as trees: a member more or less, a value of another type, a level deeper. The names and types of
/// the outermost members stay.
QJsonObject jsonInput(const std::uint8_t *data, std::size_t size);

/// Whether U+FFFF or its like is somewhere in it, of which not everybody makes the same.
bool hasNoncharacters(const QJsonObject &input);

} // namespace Fuzz
