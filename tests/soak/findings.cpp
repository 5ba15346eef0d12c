// SPDX-License-Identifier: BSD-3-Clause
#include "findings.h"

void Findings::add(const QString &expected, const QString &found)
{
    const QMutexLocker lock(&m_mutex);
    Finding &finding = m_findings[expected];
    if (finding.count++ == 0)
        finding.first = found;
}

QStringList Findings::lines() const
{
    const QMutexLocker lock(&m_mutex);
    QStringList lines;
    for (auto i = m_findings.cbegin(); i != m_findings.cend(); ++i) {
        lines << QString("Expected %1; found %2").arg(i.key(), i->first);
        if (i->count > 1)
            lines.last() += QString(", and %1 more").arg(i->count - 1);
    }
    return lines;
}
