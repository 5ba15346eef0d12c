// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "findings.h"
#include "load.h"

#include <Corvane/Lifecycle>
#include <Corvane/MemoryPressure>

#include <QtCore/QMap>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimer>

/// Sets memory levels in the service, kills applications, and checks the signals about both.
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
    int m_level = 0; ///< The last level that was set.
    bool m_isAwaited = false; ///< The signal for m_level has not arrived yet.
    QMap<QString, Corvane::ApplicationState> m_instances; ///< The instances that have not stopped.
    QString m_dying; ///< The killed instance, until its signal arrives.
    int m_levels = 0;
    int m_changes = 0;
    int m_kills = 0;
};
