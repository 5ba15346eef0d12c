// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "table.h"

#include <QtCore/QHash>
#include <QtCore/QStringList>

#include <optional>

/// One command of the table with its values.
struct Invocation
{
    const Command *command = nullptr;
    QStringList arguments;
    QStringList rest; ///< The words after "--", if the command accepts them.
    QHash<QString, QStringList>
        options; ///< The values of each given option; an empty text for an option without value.

    bool has(const char *option) const { return options.contains(QLatin1String(option)); }
    QStringList values(const char *option) const { return options.value(QLatin1String(option)); }
    QString value(const char *option) const { return values(option).value(0); }
};

/// Parses the arguments of the program. After --help, --version or an error, prints a text and sets \a exitCode.
std::optional<Invocation> readCommandLine(QStringList arguments, int *exitCode);
