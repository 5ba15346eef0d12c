// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <systemd/sd-bus.h>

/// Hand-written conversion of JSON with sd-bus.
namespace SdBusPeer {

void append(sd_bus_message *message, const QJsonObject &object);
QJsonObject readObject(sd_bus_message *message);

} // namespace SdBusPeer
