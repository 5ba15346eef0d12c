// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

/// Replaces the text in each printed QDBusError by "...". Error names are the same on every bus, texts are not.
inline QStringList withoutBusTexts(QStringList texts)
{
    static const QRegularExpression error("(QDBusError\\(\"[\\w.]+\", )\".*\"\\)");
    return texts.replaceInStrings(error, "\\1...)");
}
