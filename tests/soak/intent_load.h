// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "auditor.h"

#include <Corvane/IntentsInvoker>

#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>

#include <vector>

class Caller;

/// Invokes intents with many concurrent callers, and checks each outcome.
class IntentLoad : public Load
{
    Q_OBJECT
public:
    IntentLoad(quint32 seed, const SharedFiles &files, Findings &findings);
    ~IntentLoad() override;

    void start() override;
    void stop() override;
    QString outstanding() const override;
    Rows figures(double seconds) const override;

    /// Sends an intent to each application, so that the stand-in starts it.
    void wakeApplications();

private:
    friend class Caller;

    struct Call
    {
        int id = 0;
        QString intentName;
        QJsonObject params;
        /// The expected error. Without an error, the reply is equal to the parameters.
        Corvane::Error::Code code = Corvane::Error::NoError;
        QString message; ///< The expected end of the error's text.
        bool hasFile = false;
        /// The application that handles the intent, if the soak kills this application; the call may fail then.
        QString killable;

        /// Every second call is a request. The outcome of the other ones does not identify the call.
        bool isRequest() const { return id % 2 == 0; }
        bool isRight(const QJsonObject &reply, const Corvane::Error &error) const;
    };
    struct Counts
    {
        qint64 invoked = 0;
        qint64 withFile = 0;
        qint64 answered = 0;
        qint64 refused = 0; ///< Calls that failed as expected.
        qint64 killed = 0; ///< Calls that failed because their handler was killed.
        qint64 dropped = 0; ///< Calls whose invoker was deleted.
        qint64 unexpected = 0;
        qint64 invokers = 0;
    };
    Call echo(const char *application);

    QRandomGenerator m_random;
    const SharedFiles &m_files;
    Findings &m_findings;
    Auditor m_auditor;
    QTimer m_refill; ///< Starts callers that have no calls in flight.
    bool m_isOn = false;
    int m_lastId = 0;
    Counts m_counts;
    std::vector<std::unique_ptr<Caller>> m_callers;
};
