// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "omissions.h"

#include <QtCore/QVariant>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusMetaType>

namespace Corvane {

/// Returns whether the value is an unread QDBusArgument that QtDBus can demarshal as a \a T. An argument that the
/// application has written cannot be read.
template<typename T>
bool isUnread(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return false;
    const auto argument = value.value<QDBusArgument>();
    return argument.currentType() != QDBusArgument::UnknownType
        && argument.currentSignature() == QLatin1String(QDBusMetaType::typeToSignature(qMetaTypeId<T>()));
}

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
    return isUnread<T>(value) ? qdbus_cast<T>(value) : T();
}

/// Returns whether QSequentialIterable can iterate over the value. QVariant::canConvert<QVariantList>() is not the
/// same: it is also true for types that convert only as a whole, and an iterable over such a type crashes.
bool isSequence(const QVariant &value);

/**
 * Returns a received map with types of QtCore only, for applications that do not use QtDBus.
 *
 * Basic types, lists of strings and arrays of bytes are unchanged. A variant becomes its content. Any other array or
 * map is read as JSON (see DBus/types.h), and becomes a QVariantList or a QVariantMap. Object paths, signatures, file
 * descriptors and structures become null; a structure causes a warning.
 */
QVariantMap withoutBusTypes(const QVariantMap &map);

/**
 * Returns a map that QtDBus can marshal. Converts JSON at any depth. Omits values that D-Bus cannot represent, and adds
 * them to \a omissions.
 */
QVariantMap sendable(const QVariantMap &map, Omissions *omissions);

} // namespace Corvane
