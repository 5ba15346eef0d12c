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
 * Looks at the descriptors that travel with intents and their replies, as a monitor of the bus that does not use
 * QtDBus: each has to be open on the file that the message names, in the mode that it says.
 */
class Auditor : public QObject
{
    Q_OBJECT
public:
    /// \param intents the names of those that carry a file each
    Auditor(const QStringList &intents, const SharedFiles &files, Findings &findings);
    ~Auditor() override;

    /// An intent with a file is about to be sent.
    void onSent(int id);
    /// An intent with a file has been answered, so that a reply with the file has to come by.
    void onAnswered(int id);
    /// A reply with a file may come by, or none.
    void onDropped(int id);

    /// How many messages have yet to come by.
    int outstanding() const { return m_sent.size() + m_answered.size(); }
    Rows figures() const;

private:
    /// What there is of interest in a message.
    struct Content
    {
        int id = -1;
        QString file;
        QVector<int> readDescriptors; ///< They live as long as the message.
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
    QSet<int> m_sent;
    QSet<int> m_answered; ///< with no reply come by yet
    QSet<int> m_dropped; ///< likewise
    QSet<int> m_early; ///< whose reply has come by, and has not been delivered yet
    int m_requests = 0;
    int m_replies = 0;
};
