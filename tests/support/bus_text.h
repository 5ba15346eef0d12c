// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

/// Replaces the bus's text in each printed QDBusError by "...": every bus uses the same error names, but its own texts.
inline QStringList withoutBusTexts(QStringList texts)
{
    static const QRegularExpression error("(QDBusError\\(\"[\\w.]+\", )\".*\"\\)");
    return texts.replaceInStrings(error, "\\1...)");
}
