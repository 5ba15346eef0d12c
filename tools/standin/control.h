// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"
#include "clock.h"
#include "memory_pressure.h"

#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMessage>

/// The object "StandIn1" for the commands of the stand-in. The adaptor calls its members.
class Control : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    Control(const Applications &applications, MemoryPressure *memoryPressure, Clock *clock, QObject *parent = nullptr);

    void SetMemoryLevel(int level);
    void FollowMemoryPressure();
    QString MoveClock(qlonglong milliseconds);
    QString StartApplication(const QString &applicationId);
    void StopApplication(const QString &applicationId);
    QString JoinApplication(const QString &applicationId);

private:
    Application *find(const QString &applicationId);

    const Applications &m_applications;
    MemoryPressure *const m_memoryPressure;
    Clock *const m_clock;
};
