// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "params.h"
#include "session.h"

#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>

#include <QtCore/QCoreApplication>

using Corvane::Error;

int invokeIntent(const Invocation &invocation)
{
    IntentValues values;
    if (const Error error = readIntentValues(invocation, &values))
        return Output::fail(error);

    Corvane::IntentsInvoker invoker;
    Corvane::IntentRequest *request = nullptr;
    Session::onTermination([&request] { request->cancel(); }); // called from the event loop
    request = invoker.request(invocation.arguments.first(), values.hints, values.params);
    const double seconds = invocation.value("timeout").toDouble(); // 0 without the option
    if (seconds > 0)
        request->setTimeout(std::chrono::milliseconds(std::max(qint64(1), qRound64(seconds * 1000))));
    QObject::connect(request, &Corvane::IntentRequest::finished, request, [] { QCoreApplication::quit(); });
    QCoreApplication::exec();

    switch (request->state()) {
    case Corvane::IntentRequest::Replied:
        Output::printObject(request->reply());
        return Error::NoError;
    case Corvane::IntentRequest::Failed:
        return Output::fail(Session::explained(request->error()));
    default:
        return Output::fail(request->error());
    }
}
