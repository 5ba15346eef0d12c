// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

/// What --verbose shows: a line for each message, on standard error, with the number of the request it belongs to.
class Trace
{
public:
    explicit Trace(bool on) : m_on(on) { }

    /// Whether anything is shown; what is costly to describe need not be, otherwise.
    bool isOn() const { return m_on; }

    /// Writes a line, which belongs to a request or to none.
    void write(int number, const QString &text) const { write(QStringLiteral("[%1] %2").arg(number).arg(text)); }
    void write(const QString &text) const;

    /// A text in quotes, with what would break the line escaped, and cut if it is long.
    static QString quoted(const QString &text);
    /// A value as it came from the bus, an a{sv}, as JSON.
    static QString json(const QVariant &value);
    /// The descriptors under "readFds" and "writeFds" in a map: `, to read: "/tmp/a.txt" (read-only, 12 bytes)`.
    /// They are looked at, and closed when the last copy of the map goes.
    static QString descriptors(const QVariantMap &map);

private:
    const bool m_on;
};
