// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "session.h"

using Corvane::Error;

int showService(const Invocation &)
{
    if (const Error error = Session::serviceError())
        return Output::fail(error, {{QStringLiteral("available"), false}});
    Output::printLine(QStringLiteral("The service is running on the session bus."),
                      {{QStringLiteral("available"), true}});
    return Error::NoError;
}
