// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QString>
#include <QtCore/QVector>

/**
 * What a benchmark program has measured: rows of samples, which benchmarks/report.py makes tables of.
 *
 * Made from the program's arguments, "quick|full FILE"; complains and ends the program if they are others.
 */
class Results
{
public:
    explicit Results(const QStringList &arguments);

    bool isQuick() const { return m_quick; }
    /// Samples to take of everything, or less if that would take longer than longest().
    int rounds() const { return m_quick ? 15 : 101; }
    qint64 longest() const { return m_quick ? 500000000 : 10000000000; } ///< In nanoseconds.

    /// \param unit of the samples: ns, bytes, calls/s or nothing for plain numbers
    void add(const QString &topic, const QString &caseName, const QString &variant, const QString &unit,
             const QVector<double> &samples);
    /// Writes the file, as one JSON array.
    void write() const;

private:
    bool m_quick = false;
    QString m_file;
    QJsonArray m_rows;
};
