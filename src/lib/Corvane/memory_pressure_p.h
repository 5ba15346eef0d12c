// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "memory_pressure.h"

#include <QtDBus/QDBusAbstractInterface>

namespace Corvane {

/// The proxy of the service's memory-pressure interface, and the last known level.
class MemoryPressurePrivate : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    explicit MemoryPressurePrivate(MemoryPressure *q);

    /// Makes the object of this process subscribe and read the level again. Has no effect if there is no object.
    static void refresh();

    int level = MemoryPressure::NormalLevel;
    MemoryPressure *const q;

public Q_SLOTS:
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    void subscribe();
    void readLevel();
    void updateLevel(const QVariantMap &properties);
};

} // namespace Corvane
