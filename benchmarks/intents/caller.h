// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QQueue>

/**
 * The base class of the callers. A derived class makes the calls with one of the D-Bus libraries.
 *
 * It reads batches from its input, one line of JSON each ("intent", "params", "calls", "inFlight"). For each batch, it
 * prints a line with times in nanoseconds: of each call ("latencies"), of the whole batch ("elapsed"), and the
 * processor time of this process ("processorTime").
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
        QJsonObject params; ///< The files at "files" are shared.
    };

    /// To be called for each reply. Replies arrive in the order of the calls.
    void onReply(const QJsonObject &reply);

private:
    virtual void send(const Intent &intent) = 0;
    /// Waits for the next events and handles them.
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
    static constexpr char Path[] = "files[*]"; ///< their path in the parameters

    explicit SharedFiles(const QJsonObject &params);
    ~SharedFiles();
    Q_DISABLE_COPY_MOVE(SharedFiles)

    const QVector<int> &descriptors() const { return m_descriptors; }

private:
    QVector<int> m_descriptors;
};
