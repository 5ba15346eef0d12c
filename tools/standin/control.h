// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"
#include "clock.h"
#include "manifest_loader.h"
#include "memory_pressure.h"
#include "monitors.h"
#include "record.h"
#include "tasks.h"

#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMessage>

/// The object "StandIn1" for the commands of the stand-in. The adaptor calls its members.
class Control : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    /// The objects that it controls.
    struct Subjects
    {
        const StandInRecord &record;
        const Applications &applications;
        const Tasks &tasks;
        MemoryPressure *memoryPressure;
        Clock *clock;
        ManifestLoader *manifests;
        Monitors *monitors;
    };
    explicit Control(const Subjects &subjects, QObject *parent = nullptr);

    QString GetStatus() const;
    void SetMemoryLevel(int level);
    void FollowMemoryPressure();
    QString MoveClock(qlonglong milliseconds);
    QString MoveClockTo(const QString &time);
    void ReloadManifests();
    QString StartApplication(const QString &applicationId);
    void StopApplication(const QString &applicationId);
    QString JoinApplication(const QString &applicationId);
    void SetApplicationState(const QString &applicationId, uint state);
    void StartMonitor();

private:
    Application *find(const QString &applicationId);

    const Subjects m_subjects;
};
