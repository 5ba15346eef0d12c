// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/error.h>

#include <QtCore/QStringList>

/// Records the outcomes of a task's calls in the order of their callbacks.
class Outcomes
{
public:
    auto callback()
    {
        return [this](const Corvane::Error &error) {
            all << QString("%1 %2").arg(int(error.code())).arg(error.message());
        };
    }

    /// The code and the message of each error, such as "0 " or "3 the reason".
    QStringList all;
};
