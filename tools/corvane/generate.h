// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "table.h"

#include <QtCore/QString>

/// The texts that are made from the table.
namespace Generate {

/// The text of "corvane --help".
QString overview();
/// The text of "corvane COMMAND --help".
QString help(const Command &command);
/// The manual page ("man"), or the completions of a shell ("bash", "zsh"). Empty for another name.
QString file(const QString &name);

QString manualPage();
QString bashCompletions();
QString zshCompletions();

/// Returns the arguments and options of a command as in a manual page, such as "NAME [PARAM]... [OPTION]...".
QString synopsis(const Command &command);
/// Returns the text in lines of this width. The lines after the first one begin with this indentation.
QString wrapped(const QString &text, int width, int indentation = 0);

} // namespace Generate
