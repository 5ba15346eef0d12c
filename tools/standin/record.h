// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

#include <sys/types.h>

/// The data that another terminal needs to join a running stand-in.
struct StandInRecord
{
    QString name; ///< unique among the running stand-ins of the user
    pid_t processId; ///< the process that the shell has started
    QString directory; ///< the working directory at the start
    QString busAddress;
    QString runtimeDirectory; ///< XDG_RUNTIME_DIR of its processes
};

/**
 * Records a running stand-in of this user: a file in the directory "corvane-standin" of the user's runtime directory,
 * or in /tmp/corvane-standin-UID if there is none. Only the user can read and write the directory.
 *
 * The process holds a lock on the file, which the kernel releases when the process ends for any reason. A file without
 * a lock is stale; a process id that was reused does not matter.
 */
class RecordFile
{
public:
    RecordFile() = default;
    ~RecordFile();
    Q_DISABLE_COPY(RecordFile)

    /// Writes the record. If \a isDefaultName, the name "NAME" becomes "NAME-2" if a running stand-in has it. Returns
    /// the reason of a failure, for people; empty if the record is written.
    QString write(const StandInRecord &record, bool isDefaultName);

    /// Whether a running stand-in had the name in the last call of write().
    bool isNameTaken() const { return m_isNameTaken; }
    const StandInRecord &record() const { return m_record; } ///< the written one

private:
    void remove();

    StandInRecord m_record{};
    QByteArray m_path;
    int m_descriptor = -1;
    bool m_isNameTaken = false;
};

/// Returns the running stand-ins of this user, and removes stale records.
QVector<StandInRecord> runningStandIns();
