// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

/// The JSON payloads of the benchmarks.
namespace Payloads {

QJsonObject small(); ///< Five members.
QJsonObject medium(); ///< A hundred members, three levels.
QJsonObject nested(int depth); ///< Eight scalars per level, and the object of the next level.
QJsonObject wide(int members); ///< One object of scalars.
QJsonObject numbers(int count); ///< An array of numbers.
QJsonObject objects(int count); ///< An array of objects with four scalars each.
QJsonObject text(int length);

} // namespace Payloads
