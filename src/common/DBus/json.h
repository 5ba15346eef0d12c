// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "omissions.h"

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtDBus/QDBusArgument>

/**
 * The conversion from JSON to values of the bus.
 *
 * A boolean becomes b, a number d, a string s, an object a{sv}. A typed array becomes ab, ad, as or aa{sv}; an empty or
 * mixed one becomes av. D-Bus cannot represent nulls, arrays of arrays and arrays of nulls. The conversion omits these
 * values, and all values that nest deeper than any message, from the object or array that contains them.
 */
namespace Corvane {

struct BusMember
{
    QString key;
    QVariant value; ///< bool, double, QString, a list of one of these, BusObject, QVector<BusObject>, QVariantList
};

/// A JSON object as values of the bus. QtDBus marshals it faster than a QVariantMap.
struct BusObject
{
    QVector<BusMember> members;
};

QDBusArgument &operator<<(QDBusArgument &arg, const BusObject &object);

/// The place of a JSON value in a message. It determines which arrays in the value are typed.
enum class Place {
    Params, ///< In params and replies, every array with elements of one type is typed.
    Hints, ///< In hints, the same, except that the objects in an array contain no typed arrays.
    MixedArray, ///< A mixed array contains no typed arrays at any depth.
};

/// Returns the value in one of the types of BusMember::value, or an invalid variant if the value is omitted. Adds all
/// omitted values to \a omissions.
QVariant toBus(const QJsonValue &value, Place place, Omissions *omissions);
BusObject toBusObject(const QJsonObject &object, Place place, Omissions *omissions);
/// Does the same for an object whose members the caller changes before it sends them.
QVariantMap toBusMap(const QJsonObject &object, Place place, Omissions *omissions);

} // namespace Corvane

Q_DECLARE_TYPEINFO(Corvane::BusMember, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Corvane::BusObject)
