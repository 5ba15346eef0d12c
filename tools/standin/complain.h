// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QTextStream>

/// Prints an error message to standard error.
inline void complain(const QString &text)
{
    QTextStream(stderr) << "corvane-standin: " << text << Qt::endl;
}
