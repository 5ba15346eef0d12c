// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <gio/gio.h>

/// JSON on the bus as one writes it by hand with GDBus.
namespace GDBusPeer {

/// A floating reference.
GVariant *toVariant(const QJsonObject &object);
QJsonObject toObject(GVariant *dictionary);

} // namespace GDBusPeer
