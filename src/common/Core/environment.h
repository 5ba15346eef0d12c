// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QtGlobal>

namespace Core {

/// An environment variable as UTF-8, whatever the locale; empty if it is not set.
inline QString fromEnvironment(const char *name)
{
    return QString::fromUtf8(qgetenv(name).constData());
}

} // namespace Core
