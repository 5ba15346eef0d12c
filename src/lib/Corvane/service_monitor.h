// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>

#include <memory>

namespace Corvane {

class ServiceMonitorPrivate;

/**
 * Follows whether the service is running, and since when.
 *
 * MemoryPressure subscribes to the service and reads the level once; the tasks read their states once. A restarted
 * service does not know the subscription. An application that may outlive the service connects the signal to refresh():
 *
 * \code
 * auto *monitor = new Corvane::ServiceMonitor(this);
 * connect(monitor, &Corvane::ServiceMonitor::availableChanged, monitor, &Corvane::ServiceMonitor::refresh);
 * \endcode
 *
 * With this connection, the first availableChanged() repeats the first calls. This has no other effect.
 *
 * Nothing else has to be repeated in this process: RuntimeDispatcher keeps its bus name, and Lifecycle, IntentsInvoker
 * and Task follow the new service. Requests and calls in flight fail. Values such as MemoryPressure::level() and
 * Task::state() stay until the new service announces others. The service decides whether it remembers the tasks.
 *
 * A process may create any number of monitors. Use them on the main thread, which needs a running event loop. The
 * first object of the library connects the process to the bus, which blocks. No other function of this class blocks.
 */
class CORVANE_EXPORT ServiceMonitor : public QObject
{
    Q_OBJECT
    /// See isAvailable().
    Q_PROPERTY(bool available READ isAvailable NOTIFY availableChanged)
    /// See availableSince().
    Q_PROPERTY(QDateTime availableSince READ availableSince NOTIFY availableChanged)
public:
    /// Asks the bus for the owner of the service's name. isAvailable() is false until the bus has replied.
    explicit ServiceMonitor(QObject *parent = nullptr);
    /// Destroys the monitor. Does not emit availableChanged().
    ~ServiceMonitor() override;

    /// Returns whether a process owns the service's name. Returns false without a connection to the bus, and after this
    /// connection is lost: Qt does not connect again.
    bool isAvailable() const;
    /// Returns the time, in UTC, at which this monitor noticed that the service is available. Returns an invalid time
    /// if the service is not available.
    QDateTime availableSince() const;

public Q_SLOTS:
    /**
     * Makes the existing MemoryPressure object subscribe and read the level again, and makes the existing tasks read
     * their states again. Failures are logged with the warnings of the first calls. A successful reading of the states
     * has the effect of the first one: tasks that are created later have their states immediately.
     *
     * Returns before the service has replied; MemoryPressure::levelChanged() and Task::stateChanged() report changes.
     * Has no effect if the service is not available. Creates neither the MemoryPressure object nor a task: an object
     * that the application has not used, or has deleted, sends nothing. The library never calls this function.
     */
    void refresh();

Q_SIGNALS:
    /**
     * Emitted when isAvailable() changes, from the event loop; the first time when the bus has replied to the
     * constructor's call, if the service is running. If another process replaces the service, the signal is emitted
     * with false and then with true, because the new process does not know the subscriptions. A slot may delete the
     * monitor.
     */
    void availableChanged(bool available);

private:
    const std::unique_ptr<ServiceMonitorPrivate> d;
};

} // namespace Corvane
