// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

/// Returns whether the soak itself causes the warning: one end of a channel closes while the other is connected.
inline bool isExpectedWarning(const QString &text)
{
    return text == "Socket error \"QLocalSocket: Remote closed\"";
}
