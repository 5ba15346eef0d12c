// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariant>

/// The output of --verbose, and of "corvane-standin monitor": one line per message, with the number of its request.
class Trace : public QObject
{
    Q_OBJECT
public:
    /// \param verbose whether lines are written to standard error
    explicit Trace(bool verbose) : m_verbose(verbose) { }

    void setMonitored(bool monitored) { m_monitored = monitored; } ///< Whether written() is used.

    /// Whether lines are written. Test it before you build a costly text.
    bool isOn() const { return m_verbose || m_monitored; }

    /// Writes a line, with or without the number of a request.
    void write(int number, const QString &text) const { write(QStringLiteral("[%1] %2").arg(number).arg(text)); }
    void write(const QString &text) const;

    /// Returns the text in quotes, with control characters escaped, and truncated if it is long.
    static QString quoted(const QString &text);
    /// Returns a value from the bus (a{sv}) as JSON.
    static QString json(const QVariant &value);
    /// Describes the file descriptors at "readFds" and "writeFds": `, to read: "/tmp/a.txt" (read-only, 12 bytes)`.
    static QString descriptors(const QVariantMap &map);

Q_SIGNALS:
    void written(const QString &line) const; ///< Emitted if the trace is monitored.

private:
    const bool m_verbose;
    bool m_monitored = false;
};
