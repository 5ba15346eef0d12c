// SPDX-License-Identifier: BSD-3-Clause
#include "clock.h"

QDateTime Clock::read(const QString &text, const QDateTime &now)
{
    const QTime time = QTime::fromString(text, Qt::ISODate);
    if (!time.isValid())
        return QDateTime::fromString(text, Qt::ISODate);
    const QDateTime today(now.date(), time);
    return today > now ? today : QDateTime(now.date().addDays(1), time);
}
