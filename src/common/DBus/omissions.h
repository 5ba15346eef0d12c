// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Corvane {

/// A value that is omitted from a message: the text of the warning, and the function and file of its log context.
struct Omission
{
    QString text;
    const char *function;
    const char *file;
};

/// The values that are omitted from a message. Their warnings are logged only if the message is sent.
class Omissions
{
public:
    void add(const Omission &omission) { m_omissions.append(omission); }
    /// Adds a value that nests deeper than any message. All of these values together cause one warning.
    void addTooDeep(const Omission &omission);
    bool isTooDeep() const { return m_isTooDeep; }

    void log() const;

private:
    QVector<Omission> m_omissions;
    bool m_isTooDeep = false;
};

} // namespace Corvane
