// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <dbus/dbus.h>

/// JSON on the bus as one writes it by hand with libdbus.
namespace LibdbusPeer {

void append(DBusMessageIter *iter, const QJsonObject &object);
QJsonObject readObject(DBusMessageIter *iter);

} // namespace LibdbusPeer
