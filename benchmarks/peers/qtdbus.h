// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QVariantMap>
#include <QtDBus/QDBusArgument>

/// JSON on the bus as one writes it by hand with QtDBus: by way of variant maps.
namespace QtDBusPeer {

/// Has to be called first, once.
void registerTypes();
QVariantMap toMap(const QJsonObject &object);
QJsonObject readObject(const QDBusArgument &argument);

} // namespace QtDBusPeer
