// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QTextStream>

/// Tells the user what goes wrong, on standard error.
inline void complain(const QString &text)
{
    QTextStream(stderr) << "corvane-standin: " << text << Qt::endl;
}
