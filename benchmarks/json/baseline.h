// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtDBus/QDBusArgument>

/// The plain writer of JSON: each member has its own QDBusArgument, which is then copied into a variant.
namespace Baseline {

void write(QDBusArgument &argument, const QJsonObject &object);

} // namespace Baseline
