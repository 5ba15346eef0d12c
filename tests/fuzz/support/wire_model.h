// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Fuzz {

/// Where JSON is written, which decides about the arrays in it.
enum class Place {
    Params, ///< Of params and replies, all arrays of one type are typed.
    Hints, ///< Of hints, those in the objects of an array are not.
    Mixed, ///< Within a mixed array no array is typed.
};

/// The expected form of JSON on the bus.
struct Wire
{
    QString text; ///< as textOf() writes a message
    QJsonObject json; ///< the JSON that is read from it
    QStringList warnings; ///< about what is left out
};

/// Sorts the entries of a dictionary, which begin at \a starts, are separated by ", ", and end with the text.
void sortEntries(QString *text, const QVector<int> &starts);

Wire wireOf(const QJsonObject &object, Place place);

/// Why the value is to be refused, in no order; empty if it is not. What is left out of an array counts, but not an
/// array that is left out.
QStringList refusals(const QJsonValue &value, Place place);

} // namespace Fuzz
