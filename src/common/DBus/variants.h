// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "omissions.h"

#include <QtCore/QVariant>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusMetaType>

namespace Corvane {

/// Returns a value that came from the bus as a \a Type. QtDBus leaves containers unread, and crashes where an argument
/// is read as anything else than it contains.
template<typename Type>
Type fromBus(const QVariant &value)
{
    if (value.userType() != qMetaTypeId<QDBusArgument>())
        return value.value<Type>();
    const auto arg = value.value<QDBusArgument>();
    const char *const signature = QDBusMetaType::typeToSignature(qMetaTypeId<Type>());
    return arg.currentSignature() == QLatin1String(signature) ? qdbus_cast<Type>(arg) : Type();
}

/**
 * Returns the map as QtDBus can marshal it, at any depth: JSON is converted, and each value without a form on D-Bus is
 * left out. Logs a warning about each of these, but adds the values that are left out of JSON to \a omissions.
 */
QVariantMap sendable(const QVariantMap &map, Omissions *omissions);

} // namespace Corvane
