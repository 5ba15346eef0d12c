// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <gio/gio.h>

/// Hand-written conversion of JSON with GDBus.
namespace GDBusPeer {

/// Returns a floating reference.
GVariant *toVariant(const QJsonObject &object);
QJsonObject toObject(GVariant *dictionary);

} // namespace GDBusPeer
