// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

/// Whether what the library logs is what a soak brings about: ends of a channel go while the other is there.
inline bool isExpectedWarning(const QString &text)
{
    return text == "Socket error \"QLocalSocket: Remote closed\"";
}
