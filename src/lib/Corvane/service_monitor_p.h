// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "service_monitor.h"

#include <QtCore/QString>

namespace Corvane {

/// The last known owner of the service's name.
class ServiceMonitorPrivate : public QObject
{
    Q_OBJECT
public:
    explicit ServiceMonitorPrivate(ServiceMonitor *q);

    QString owner; ///< the unique name of the service; empty if the service is not available
    QDateTime since;
    ServiceMonitor *const q;

public Q_SLOTS:
    void onOwnerChanged(const QString &service, const QString &oldOwner, const QString &newOwner);
    void onBusLost();

private:
    void setOwner(const QString &newOwner);

    quint32 m_updates = 0; ///< the number of calls of setOwner()
};

} // namespace Corvane
