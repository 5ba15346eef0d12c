// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtDBus/QDBusArgument>

/// JSON on the bus written plainly: each member into an argument of its own, which is then copied into its variant.
namespace Baseline {

void write(QDBusArgument &argument, const QJsonObject &object);

} // namespace Baseline
