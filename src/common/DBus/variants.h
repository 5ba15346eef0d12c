// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "omissions.h"

#include <QtCore/QVariant>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusMetaType>

namespace Corvane {

/**
 * Returns a value of the bus as a \a T. Returns T() if it is of another type.
 *
 * QtDBus leaves an array of structures or a map inside a variant as an unread QDBusArgument. QtDBus crashes if that
 * argument is demarshalled as a type with another signature. The signature is therefore compared first. A \a T of this
 * library is known to QtDBus after registerRecordTypes().
 */
template<typename T>
T fromBus(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return value.value<T>();
    const auto argument = value.value<QDBusArgument>();
    const QLatin1String signature(QDBusMetaType::typeToSignature(qMetaTypeId<T>()));
    return argument.currentSignature() == signature ? qdbus_cast<T>(argument) : T();
}

/**
 * Returns the map as QtDBus can marshal it, at any depth: JSON is converted, and each value without a form on D-Bus is
 * left out. Logs a warning about each of these, but adds the values that are left out of JSON to \a omissions.
 */
QVariantMap sendable(const QVariantMap &map, Omissions *omissions);

} // namespace Corvane
