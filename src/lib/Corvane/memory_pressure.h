// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QObject>

#include <memory>

namespace Corvane {

class MemoryPressurePrivate;

/**
 * The system's memory pressure, as the service measures it.
 *
 * \code
 * connect(Corvane::MemoryPressure::instance(), &Corvane::MemoryPressure::levelChanged, this,
 *         [this](Corvane::MemoryPressure::MemoryLevel level) {
 *             if (level >= Corvane::MemoryPressure::LowLevel)
 *                 dropCaches();
 *         });
 * \endcode
 *
 * One for each process, to be used on the main thread.
 */
class CORVANE_EXPORT MemoryPressure : public QObject
{
    Q_OBJECT
    Q_PROPERTY(MemoryLevel level READ level NOTIFY levelChanged)
public:
    /// The service may send other numbers; they arrive unchanged.
    enum MemoryLevel : int {
        NormalLevel = 0,
        LowLevel = 100, ///< Memory is getting scarce: give up what can be made again.
        CriticalLevel = 200, ///< The system is about to end processes.
    };
    Q_ENUM(MemoryLevel)

    /**
     * The object of this process, made on first use. It subscribes to the service and asks it for the level; if either
     * fails, a warning says so, and nothing is tried again. The library never deletes it; an application that does must
     * not call this again. Making it asks the bus once, blocking, who owns the service's name.
     */
    static MemoryPressure *instance();
    ~MemoryPressure() override;

    /// The level last heard of; NormalLevel until the service has told it. Asks nobody.
    MemoryLevel level() const;

Q_SIGNALS:
    /**
     * The service told another level than the last one, or its first that is not NormalLevel. The constructor registers
     * the argument for queued connections; registerMetaTypes() does so as well.
     */
    void levelChanged(MemoryLevel level);

private:
    MemoryPressure();

    const std::unique_ptr<MemoryPressurePrivate> d;
};

} // namespace Corvane
