// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "incoming_intent.h"
#include "received_call_p.h"

#include <QtCore/QObject>

#include <atomic>

namespace Corvane {

/// A received intent. It lives on the thread of the dispatcher, and is shared by handles on any thread.
class IncomingIntentPrivate : public QObject
{
    Q_OBJECT
public:
    /// \param files contains the paths of the files in the reply.
    IncomingIntentPrivate(const QString &intentName, const QJsonObject &params, const QVariantMap &files,
                          const ReceivedCall &call);
    /// Fails an intent without an answer.
    ~IncomingIntentPrivate() override;

    /// Returns an object that is deleted on the current thread.
    static std::shared_ptr<IncomingIntentPrivate> create(const QString &intentName, const QJsonObject &params,
                                                         const QVariantMap &files, const ReceivedCall &call);

    void reply(const QJsonObject &result);
    void fail(const QString &text);
    void setOutputFiles(const QStringList &readFiles, const QStringList &writeFiles);

    const QString intentName;
    const QJsonObject params;
    std::atomic<bool> answered{false};

private:
    QVariantMap m_files;
    const ReceivedCall m_call;
};

} // namespace Corvane
