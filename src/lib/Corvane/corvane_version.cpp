// SPDX-License-Identifier: BSD-3-Clause
#include "corvane_version.h"

namespace Corvane {

QString versionString()
{
    return QStringLiteral(QT_STRINGIFY(CORVANE_VERSION_MAJOR) "." QT_STRINGIFY(CORVANE_VERSION_MINOR) "." QT_STRINGIFY(
        CORVANE_VERSION_PATCH));
}

} // namespace Corvane
