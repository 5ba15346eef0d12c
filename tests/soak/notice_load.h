// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "findings.h"
#include "load.h"

#include <Corvane/Lifecycle>
#include <Corvane/MemoryPressure>

#include <QtCore/QMap>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>

/// Has the service tell memory levels, kills applications, and looks at what is heard of both.
class NoticeLoad : public Load
{
    Q_OBJECT
public:
    NoticeLoad(quint32 seed, Findings &findings);

    void start() override;
    void stop() override;
    QString outstanding() const override;
    Rows figures(double seconds) const override;

private:
    void setLevel(int level);
    void onLevelChanged(Corvane::MemoryPressure::MemoryLevel level);
    void kill();
    void onStateChanged(const QString &instanceId, Corvane::ApplicationState state);

    QRandomGenerator m_random;
    Findings &m_findings;
    bool m_isOn = false;
    QTimer m_levelTimer;
    QTimer m_killTimer;
    int m_level = 0; ///< the last one that was set
    bool m_isAwaited = false; ///< and has not been heard of
    QMap<QString, Corvane::ApplicationState> m_instances; ///< those that have not stopped
    QString m_dying; ///< the instance that has been killed, until it is told
    int m_levels = 0;
    int m_changes = 0;
    int m_kills = 0;
};
