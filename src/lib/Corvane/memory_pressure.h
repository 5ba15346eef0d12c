// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QObject>

#include <memory>

namespace Corvane {

class MemoryPressurePrivate;

/**
 * The memory pressure of the system, as measured by the service.
 *
 * \code
 * connect(Corvane::MemoryPressure::instance(), &Corvane::MemoryPressure::levelChanged, this,
 *         [this](Corvane::MemoryPressure::MemoryLevel level) {
 *             if (level >= Corvane::MemoryPressure::LowLevel)
 *                 dropCaches();
 *         });
 * \endcode
 *
 * There is one object per process. Use it on the main thread. See also docs/limits.md.
 */
class CORVANE_EXPORT MemoryPressure : public QObject
{
    Q_OBJECT
    /// See level().
    Q_PROPERTY(MemoryLevel level READ level NOTIFY levelChanged)
public:
    /// The memory pressure. Other numbers from the service arrive unchanged: compare levels with >=.
    enum MemoryLevel : int {
        NormalLevel = 0, ///< Enough memory is free.
        LowLevel = 100, ///< Memory is getting scarce: release data that can be created again.
        CriticalLevel = 200, ///< The system is about to end processes.
    };
    Q_ENUM(MemoryLevel)

    /**
     * Returns the object of this process. The first call creates it, and blocks until the bus has returned the owner of
     * the service's name. The object subscribes to the service and requests the level, once. If one of these calls
     * fails, it logs a warning and does not retry; ServiceMonitor::refresh() repeats both calls. The library never
     * deletes the object. Do not call instance() after you have deleted the object: it would return a dangling pointer.
     */
    static MemoryPressure *instance();
    /// Ends the subscription in this process. See instance().
    ~MemoryPressure() override;

    /// Returns the last received level, or NormalLevel if there is none. Does not call the service.
    MemoryLevel level() const;

Q_SIGNALS:
    /**
     * Emitted when the service sends a level that differs from level(). Queued connections work without
     * registerMetaTypes(): the constructor registers the argument type.
     */
    void levelChanged(MemoryLevel level);

private:
    MemoryPressure();

    const std::unique_ptr<MemoryPressurePrivate> d;
};

} // namespace Corvane
