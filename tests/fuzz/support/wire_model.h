// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVector>

namespace Fuzz {

/// The place of JSON in a message. It determines the signatures of the arrays in the JSON.
enum class Place {
    Params, ///< Params and replies: every array with elements of one type has the signature of these elements.
    Hints, ///< Hints: the same, except for arrays inside another array.
    Mixed, ///< Inside a mixed array: every array is "av".
};

/// The expected form of JSON on the bus.
struct Wire
{
    QString text; ///< The message in the format of textOf().
    QJsonObject json; ///< The JSON that is read from the message.
    QStringList warnings; ///< The warnings about omitted values.
};

/// Sorts the entries of a dictionary at the end of \a text. They begin at \a starts and are separated by ", ".
void sortEntries(QString *text, const QVector<int> &starts);

Wire wireOf(const QJsonObject &object, Place place);

/// Returns the possible reasons to refuse the value, in any order; empty if it must be sent. Omitted elements of an
/// array count towards the limits; an omitted array does not.
QStringList refusals(const QJsonValue &value, Place place);

} // namespace Fuzz
