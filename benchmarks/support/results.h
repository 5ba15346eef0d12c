// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QString>
#include <QtCore/QVector>

/**
 * The results of a benchmark program: rows of samples for benchmarks/report.py.
 *
 * The constructor parses the arguments of the program, "quick|full FILE". If they are invalid, it prints an error and
 * ends the program.
 */
class Results
{
public:
    explicit Results(const QStringList &arguments);

    bool isQuick() const { return m_quick; }
    /// The number of samples; fewer if they would need more time than longest().
    int rounds() const { return m_quick ? 15 : 101; }
    qint64 longest() const { return m_quick ? 500000000 : 10000000000; } ///< In nanoseconds.

    /// \param unit of the samples: ns, bytes, calls/s, or empty for plain numbers
    void add(const QString &topic, const QString &caseName, const QString &variant, const QString &unit,
             const QVector<double> &samples);
    /// Writes the file, as one JSON array.
    void write() const;

private:
    bool m_quick = false;
    QString m_file;
    QJsonArray m_rows;
};
