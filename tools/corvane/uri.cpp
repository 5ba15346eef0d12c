// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "params.h"

#include <Corvane/intent_uri.h>
#include <Corvane/intents_invoker.h>

using Corvane::Error;
using Corvane::IntentUri;

int encodeUri(const Invocation &invocation)
{
    const QString &name = invocation.arguments.first();
    IntentValues values;
    if (const Error error = readIntentValues(invocation, &values))
        return Output::fail(error);
    if (const Error error = IntentUri::check(name, values.hints, values.params))
        return Output::fail(error);
    const QUrl uri = Corvane::IntentsInvoker::intentToUri(name, values.hints, values.params);
    const QString text = QString::fromLatin1(uri.toEncoded());
    Output::printLine(text, {{QStringLiteral("uri"), text}});
    return Error::NoError;
}

int decodeUri(const Invocation &invocation)
{
    const IntentUri intent(QUrl::fromEncoded(invocation.arguments.first().toUtf8()),
                           invocation.has("keep-file-hints") ? IntentUri::KeepFileHints : IntentUri::RemoveFileHints);
    if (intent.error())
        return Output::fail(intent.error());
    Output::printObject({{QStringLiteral("intent"), intent.intentName()},
                         {QStringLiteral("hints"), intent.hints()},
                         {QStringLiteral("params"), intent.params()}});
    return Error::NoError;
}
