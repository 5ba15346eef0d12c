// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QObject>

#include <memory>

class QDebug;

namespace Corvane {

class LifecyclePrivate;

/// The state of an instance of an application. Other numbers from the service arrive unchanged.
enum ApplicationState : quint32 {
    UnknownState = 0, ///< The service does not know the state.
    LaunchingState = 1, ///< The process was started. It does not own its bus name yet.
    ForegroundState = 2, ///< The application runs, and the user interacts with it.
    BackgroundState = 3, ///< The application runs, but the user does not see it.
    SuspendedState = 4, ///< The process exists, but gets no processor time.
    StoppedState = 5, ///< The process has ended, for any reason.
};

/// Prints the name of the state, such as Corvane::ForegroundState, or its number: Corvane::ApplicationState(7).
CORVANE_EXPORT QDebug operator<<(QDebug debug, ApplicationState state);

/**
 * Follows the states of all application instances, as announced by the service.
 *
 * \code
 * connect(Corvane::Lifecycle::instance(), &Corvane::Lifecycle::stateChanged, this,
 *         [](const QString &appInstanceId, Corvane::ApplicationState state) { qInfo() << appInstanceId << state; });
 * \endcode
 *
 * There is one object per process. Use it on the main thread. See also docs/limits.md.
 */
class CORVANE_EXPORT Lifecycle : public QObject
{
    Q_OBJECT
public:
    /**
     * Returns the object of this process. The first call creates it, subscribes to the service's signal, and blocks
     * until the bus has returned the owner of the service's name. The library never deletes the object. Do not call
     * instance() after you have deleted the object: it would return a dangling pointer.
     */
    static Lifecycle *instance();
    /// Ends the subscription. See instance().
    ~Lifecycle() override;

    /**
     * Claims the instance id of this process as a bus name, and blocks until the bus has replied. The service sets the
     * id in HALVIR_APP_INSTANCE_ID, which is read at each call. Returns an error if the id is not set, if another
     * process owns the name, or if the bus returns an error.
     *
     * RuntimeDispatcher::startService() claims the same name. Use the functions of one class only.
     */
    Error startService();
    /// Releases the name, and blocks until the bus has replied. Succeeds if this process does not own the name.
    /// RuntimeDispatcher::stopService() releases the same name.
    Error stopService();

Q_SIGNALS:
    /**
     * Emitted when the service announces the state of an instance of any application, this process included. Queued
     * connections and QSignalSpy need registerMetaTypes().
     */
    void stateChanged(const QString &appInstanceId, const ApplicationState &state);

private:
    Lifecycle();

    const std::unique_ptr<LifecyclePrivate> d;
};

} // namespace Corvane
