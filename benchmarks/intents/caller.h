// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QQueue>

/**
 * The calling end of an intent's way. What is derived from it makes the calls with one of the stacks.
 *
 * It reads batches from its input, a line of JSON each ("intent", "params", "calls", "inFlight"), and answers each of
 * them with a line that tells, in nanoseconds, how long each call took ("latencies") and all together ("elapsed"), and
 * how long this process was at work for them ("processorTime").
 */
class Caller
{
public:
    virtual ~Caller() = default;
    /// Serves batches until the input ends.
    void run();

protected:
    struct Intent
    {
        QString name;
        QJsonObject params; ///< The files named in its "files" are to be shared.
    };

    /// What is derived calls this for each reply, in the order of the calls: there is one way, and no overtaking.
    void onReply(const QJsonObject &reply);

private:
    virtual void send(const Intent &intent) = 0;
    /// Waits for what happens next, and has it handled.
    virtual void processEvents() = 0;

    void runBatch(int calls, int inFlight);
    void sendNext();

    Intent m_intent;
    int m_unsent = 0;
    QElapsedTimer m_clock;
    QQueue<qint64> m_sent;
    QJsonArray m_latencies;
    QJsonObject m_lastReply;
};

/// The files that a caller shares, open for reading.
class SharedFiles
{
public:
    static constexpr char Path[] = "files[*]"; ///< where the parameters name them

    explicit SharedFiles(const QJsonObject &params);
    ~SharedFiles();
    Q_DISABLE_COPY_MOVE(SharedFiles)

    const QVector<int> &descriptors() const { return m_descriptors; }

private:
    QVector<int> m_descriptors;
};
