// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QVariantMap>
#include <QtDBus/QDBusArgument>

/// Hand-written conversion of JSON with QtDBus, through variant maps.
namespace QtDBusPeer {

/// Must be called first, once.
void registerTypes();
QVariantMap toMap(const QJsonObject &object);
QJsonObject readObject(const QDBusArgument &argument);

} // namespace QtDBusPeer
