// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"

#include <QtCore/QObject>

#include <memory>

namespace Corvane {

class LifecyclePrivate;

/// Where an instance of an application is in its life. The service may send other numbers; they arrive unchanged.
enum ApplicationState : quint32 {
    UnknownState = 0,
    LaunchingState = 1, ///< Its process has been started; it does not own its bus name yet.
    ForegroundState = 2, ///< It runs, and the user deals with it.
    BackgroundState = 3, ///< It runs out of the user's sight.
    SuspendedState = 4, ///< Its process is there, but is given no time.
    StoppedState = 5, ///< Its process has ended, however it did.
};

/**
 * Follows the states of all application instances, as the service announces them.
 *
 * \code
 * connect(Corvane::Lifecycle::instance(), &Corvane::Lifecycle::stateChanged, this,
 *         [](const QString &appInstanceId, Corvane::ApplicationState state) { qInfo() << appInstanceId << state; });
 * \endcode
 *
 * One for each process, to be used on the main thread.
 */
class CORVANE_EXPORT Lifecycle : public QObject
{
    Q_OBJECT
public:
    /**
     * The object of this process, made on first use, which subscribes to the service's signal. The library never
     * deletes it; an application that does must not call this again. Making it asks the bus once, blocking, who owns
     * the service's name.
     */
    static Lifecycle *instance();
    ~Lifecycle() override;

    /**
     * Claims the instance id that the service gave this process (HALVIR_APP_INSTANCE_ID, read at each call) as a bus
     * name. Blocks until the bus has answered. Fails if another process holds the name, or with what the bus says; an
     * id that is not set is none that the bus accepts.
     */
    Error startService();
    /// Releases the name. One that was not held is no error. Blocks until the bus has answered.
    Error stopService();

Q_SIGNALS:
    /**
     * The service announced the state of an instance: any instance of any application, this process's too. A queued
     * connection and QSignalSpy need registerMetaTypes().
     */
    void stateChanged(const QString &appInstanceId, const ApplicationState &state);

private:
    Lifecycle();

    const std::unique_ptr<LifecyclePrivate> d;
};

} // namespace Corvane
