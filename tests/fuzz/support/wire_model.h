// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>

namespace Fuzz {

/// Where JSON is written, which decides about the arrays in it.
enum class Place {
    Params, ///< Of params and replies, all arrays of one type are typed.
    Hints, ///< Of hints, those in the objects of an array are not.
    Mixed, ///< Within a mixed array no array is typed.
};

/// What is to become of JSON on the bus.
struct Wire
{
    QString text; ///< as textOf() writes a message
    QJsonObject json; ///< what is read from it again
    QStringList warnings; ///< about what is left out
    bool isSendable; ///< the bus lets it pass
};

Wire wireOf(const QJsonObject &object, Place place);

/// Whether the value may be given to the library. Beyond what the bus does not let pass, what is left out of it counts.
bool isAllowed(const QJsonValue &value);

} // namespace Fuzz
