// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QVariant>

#include <functional>

/// The output of --verbose, and of "corvane-standin monitor": one line per message, with the number of its request.
class Trace
{
public:
    struct Options
    {
        bool verbose; ///< whether lines are written to standard error
        bool timestamps; ///< whether they begin with the time
        bool raw; ///< whether the output of applications has no labels
    };
    explicit Trace(const Options &options) : m_options(options) { }

    bool isRaw() const { return m_options.raw; }

    /// Calls \a listener with each line; an empty function ends that.
    void setListener(const std::function<void(const QString &line)> &listener) { m_listener = listener; }

    /// Whether lines are written. Test it before you build a costly text.
    bool isOn() const { return m_options.verbose || m_listener; }

    /// Writes a line, with or without the number of a request.
    void write(int number, const QString &text) const { write(QStringLiteral("[%1] %2").arg(number).arg(text)); }
    void write(const QString &text) const { send(text, m_options.verbose); }
    /// Writes a line also without --verbose: a problem that no reply contains.
    void report(const QString &text) const { send(text, true); }

    /// Returns the text in quotes, with control characters escaped, and truncated if it is long.
    static QString quoted(const QString &text);
    /// Returns a value from the bus (a{sv}) as JSON.
    static QString json(const QVariant &value);
    /// Describes hints: ` with the hints {"readFiles":["uri"]}`. Empty without hints; file descriptors are omitted.
    static QString hints(const QVariantMap &map);
    /// Returns a time in the format of the trace: "23:59:59.999", in local time.
    static QString time(const QDateTime &time);
    /// Describes the file descriptors at "readFds" and "writeFds": `, to read: "/tmp/a.txt" (read-only, 12 bytes)`.
    /// Paths without a descriptor are `, to read: no file`.
    static QString descriptors(const QVariantMap &map);

private:
    void send(const QString &text, bool toStandardError) const;

    const Options m_options;
    std::function<void(const QString &line)> m_listener;
};
