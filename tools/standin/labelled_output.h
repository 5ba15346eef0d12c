// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QObject>

/**
 * A pipe for the output of a process. Each line is written to standard output or standard error, after a label. A last
 * line without line break gets one. A line of more than 64 KiB is broken.
 *
 * The object deletes itself when all processes that have the pipe open have closed it.
 */
class LabelledOutput : public QObject
{
    Q_OBJECT
public:
    /// \param target the descriptor of standard output or standard error
    LabelledOutput(const QString &label, int target);
    ~LabelledOutput() override;

    /// The end of the pipe for the process.
    int writeEnd() const { return m_writeEnd; }
    /// Call it when the process has the pipe.
    void closeWriteEnd();

    /// Writes the lines that have arrived, of all pipes.
    static void flushAll();
    /// Writes everything that has arrived, of all pipes.
    static void finishAll();

private:
    bool read();
    void writeLine(const QByteArray &line) const;

    const QByteArray m_label;
    const int m_target;
    int m_readEnd = -1;
    int m_writeEnd = -1;
    QByteArray m_line; ///< without its end
};
