// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/intents_invoker.h>

#include <json.h>

#include <QtCore/QStringList>

/// Records the replies of an invoker in the order of their signals.
class Replies
{
public:
    explicit Replies(const Corvane::IntentsInvoker &invoker)
    {
        QObject::connect(&invoker, &Corvane::IntentsInvoker::replyReceived, &invoker,
                         [this](const QJsonObject &reply, const Corvane::Error &error) {
                             all << QString("%1 %2 %3").arg(toJson(reply)).arg(int(error.code())).arg(error.message());
                         });
    }

    /// The reply, the error code and the message of each signal, such as "{"a":1} 0 " or "{} 3 the reason".
    QStringList all;
};
