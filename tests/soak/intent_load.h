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

    /// Has each application answer once, so that it runs.
    void wakeApplications();

private:
    friend class Caller;

    struct Call
    {
        int id = 0;
        QString intentName;
        QJsonObject params;
        Corvane::Error::Code code =
            Corvane::Error::NoError; ///< the expected error; without one, the reply has the parameters
        QString message; ///< the expected end of the error's text
        bool hasFile = false;
        QString
            killable; ///< the application that handles it, if the soak kills that application; the call may fail then

        bool isRight(const QJsonObject &reply, const Corvane::Error &error) const;
    };
    struct Counts
    {
        qint64 invoked = 0;
        qint64 withFile = 0;
        qint64 answered = 0;
        qint64 refused = 0; ///< as they had to be
        qint64 killed = 0; ///< with the application that handled them
        qint64 dropped = 0; ///< with their invoker
        qint64 unexpected = 0;
        qint64 invokers = 0;
    };
    Call echo(const char *application);

    QRandomGenerator m_random;
    const SharedFiles &m_files;
    Findings &m_findings;
    Auditor m_auditor;
    QTimer m_refill; ///< for callers that have nothing in flight
    bool m_isOn = false;
    int m_lastId = 0;
    Counts m_counts;
    std::vector<std::unique_ptr<Caller>> m_callers;
};
