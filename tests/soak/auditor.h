// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "findings.h"
#include "load.h"
#include "shared_files.h"

#include <QtCore/QSet>

#include <memory>

class QSocketNotifier;
using sd_bus = struct sd_bus;
using sd_bus_message = struct sd_bus_message;

/**
 * Checks the file descriptors in intents and their replies. It is a bus monitor that does not use QtDBus. Each file
 * descriptor must refer to the file that the message names, and must be opened in the mode that the message selects.
 */
class Auditor : public QObject
{
    Q_OBJECT
public:
    /// \param intents the names of the intents that contain one file
    Auditor(const QStringList &intents, const SharedFiles &files, Findings &findings);
    ~Auditor() override;

    /// Call this before an intent with a file is sent.
    void onSent(int id);
    /// Call this when the reply to an intent with a file was received. The monitor must receive this reply too.
    void onAnswered(int id);
    /// Call this when the outcome of an intent with a file was dropped. The monitor may receive a reply.
    void onDropped(int id);

    /// Returns the number of messages that the monitor must still receive.
    int outstanding() const { return m_sent.size() + m_answered.size(); }
    Rows figures() const;

private:
    /// The checked parts of a message.
    struct Content
    {
        int id = -1;
        QString file;
        QVector<int> readDescriptors; ///< The message owns them.
        QVector<int> writeDescriptors;
    };
    static void readMap(sd_bus_message *message, Content &content);
    void read();
    void check(sd_bus_message *message);
    void checkDescriptors(const Content &content);

    const SharedFiles &m_files;
    Findings &m_findings;
    sd_bus *m_bus = nullptr;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QSet<int> m_sent; ///< Intents that the monitor has not received.
    QSet<int> m_answered; ///< Answered intents whose reply the monitor has not received.
    QSet<int> m_dropped; ///< Dropped intents whose reply the monitor has not received.
    QSet<int> m_early; ///< Intents whose reply the monitor has received, and the caller has not.
    int m_requests = 0;
    int m_replies = 0;
};
