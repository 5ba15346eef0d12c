// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <dbus/dbus.h>

/// Hand-written conversion of JSON with libdbus.
namespace LibdbusPeer {

void append(DBusMessageIter *iter, const QJsonObject &object);
QJsonObject readObject(DBusMessageIter *iter);

} // namespace LibdbusPeer
