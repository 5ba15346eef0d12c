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
 * mixed one becomes av. Nulls, and arrays of arrays or of nulls, have no form on the bus. The conversion leaves them
 * out of the object or array that holds them, together with all values that nest deeper than any message.
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

/// The place of a JSON value decides which arrays in it are typed.
enum class Place {
    Params, ///< In params and replies, every array with elements of one type is typed.
    Hints, ///< Hints are the same, except that the objects in an array contain no typed arrays.
    MixedArray, ///< A mixed array contains no typed arrays at any depth.
};

/// Returns the value in one of the types of BusMember::value, or an invalid variant if the value is left out. Adds
/// everything that is left out to \a omissions.
QVariant toBus(const QJsonValue &value, Place place, Omissions *omissions);
BusObject toBusObject(const QJsonObject &object, Place place, Omissions *omissions);
/// The same for an object whose members the caller changes before it is sent.
QVariantMap toBusMap(const QJsonObject &object, Place place, Omissions *omissions);

} // namespace Corvane

Q_DECLARE_TYPEINFO(Corvane::BusMember, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Corvane::BusObject)
