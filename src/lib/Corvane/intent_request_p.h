// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "intent_request.h"
#include "intents_invoker_p.h"

#include <QtCore/QTimer>

namespace Corvane {

class IntentRequestPrivate
{
public:
    IntentRequestPrivate(const QString &intentName, IntentRequest *q);

    /// Finishes the request when the call has finished.
    void follow(const SentIntent &sent);
    void setTimeout(std::chrono::milliseconds timeout);
    void cancel();
    void then(QObject *context, const IntentRequest::Callback &callback);
    void setAutoDelete(bool newAutoDelete);

    const QString intentName;
    IntentRequest::Result result;
    bool autoDelete = false;
    IntentRequest *const q;

private:
    void setResult(IntentRequest::State state, const QJsonObject &reply, const Error &error);
    void emitFinished();

    std::unique_ptr<QTimer> m_timer; // only if there is a time-out
    Trace m_trace;
    bool m_emitted = false; // finished() was emitted
};

} // namespace Corvane
