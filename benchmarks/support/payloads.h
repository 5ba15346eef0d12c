// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

/// The JSON that travels in the benchmarks.
namespace Payloads {

QJsonObject small(); ///< Five members.
QJsonObject medium(); ///< A hundred members, nested three deep.
QJsonObject nested(int depth); ///< Eight scalars in each object, and a further object but in the last.
QJsonObject wide(int members); ///< Scalars.
QJsonObject numbers(int count); ///< An array of numbers.
QJsonObject objects(int count); ///< An array of objects with four scalars each.
QJsonObject text(int length);

} // namespace Payloads
