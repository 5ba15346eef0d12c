// SPDX-License-Identifier: BSD-3-Clause
#include "run.h"

#include "complain.h"
#include "control.h"
#include "control_adaptor.h"
#include "exit_code.h"
#include "intents.h"
#include "intents_adaptor.h"
#include "labelled_output.h"
#include "lifecycle.h"
#include "lifecycle_adaptor.h"
#include "manifest_loader.h"
#include "memory_pressure.h"
#include "memory_pressure_adaptor.h"
#include "monitors.h"
#include "private_bus.h"
#include "process_tree.h"
#include "record.h"
#include "supervisor.h"
#include "tasks.h"
#include "tasks_adaptor.h"
#include "termination_signals.h"

#include <DBus/names.h>
#include <DBus/session_bus.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusError>

#include <unistd.h>

namespace Names = Corvane::Names;

namespace {

const int ReapingInterval = 500; // milliseconds

} // namespace

int run(const RunOptions &options, int argc, char **argv)
{
    const Manifests manifests = readManifests(options.manifests);
    for (const QString &error : manifests.errors)
        complain(error);
    if (!manifests.errors.isEmpty())
        return ExitCode::Manifest;

    // Qt would use the root directory or the working directory then.
    if (QDir::tempPath().isEmpty()) {
        complain(QStringLiteral("TMPDIR names no directory: %1").arg(qEnvironmentVariable("TMPDIR")));
        return ExitCode::Bus;
    }
    QTemporaryDir directory;
    if (!directory.isValid()) {
        complain(QStringLiteral("No directory can be created in %1: %2; set TMPDIR to one that can be written")
                     .arg(QDir::tempPath(), directory.errorString()));
        return ExitCode::Bus;
    }
    const pid_t original = ::getpid(); // the process that the shell has started
    if (const auto exitCode = supervise([&directory] {
            directory.remove();
            runningStandIns(); // removes the record
        })) {
        directory.setAutoRemove(false); // the supervisor removes it
        return *exitCode;
    }

    const QCoreApplication core(argc, argv);
    Trace trace({options.verbose, options.timestamps, options.raw});
    const TerminationSignals signals;
    const ProcessTree processes;
    PrivateBus bus(options.busProgram, directory.path());
    if (!bus.problem().isEmpty()) {
        complain(bus.problem());
        return ExitCode::Bus;
    }

    QByteArray runtimeDirectory = qgetenv("XDG_RUNTIME_DIR");
    if (!QFileInfo(QFile::decodeName(runtimeDirectory)).isDir()) // no login session
        runtimeDirectory = QFile::encodeName(directory.path());
    RecordFile record;
    const bool isDefaultName = options.name.isEmpty();
    const QString problem =
        record.write({isDefaultName ? options.defaultName : options.name, original, QDir::currentPath(),
                      qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), QFile::decodeName(runtimeDirectory)},
                     isDefaultName);
    if (record.isNameTaken()) {
        complain(QStringLiteral("--name: %1").arg(problem));
        return ExitCode::Usage;
    }
    if (!problem.isEmpty())
        complain(QStringLiteral("Other terminals cannot find this stand-in: %1").arg(problem));
    qputenv("XDG_RUNTIME_DIR", runtimeDirectory);

    Applications applications(manifests.list, options.startTimeout, trace);
    Intents intents(applications, trace);
    new IntentsAdaptor(&intents);
    Lifecycle lifecycle(applications);
    new LifecycleAdaptor(&lifecycle);
    MemoryPressure memoryPressure(QStringLiteral("/proc/pressure/memory"));
    new MemoryPressureAdaptor(&memoryPressure);
    Clock clock;
    Tasks tasks(manifests.list, clock, trace);
    new TasksAdaptor(&tasks);
    ManifestLoader loader(options.manifests, &applications, &tasks, trace);
    Monitors monitors(&trace);
    Control control({record.record(), applications, tasks, &memoryPressure, &clock, &loader, &monitors});
    new ControlAdaptor(&control);
    QDBusConnection connection = Corvane::sessionBus();
    if (!connection.registerObject(Names::Intents.path(), &intents)
        || !connection.registerObject(Names::Lifecycle.path(), &lifecycle)
        || !connection.registerObject(Names::MemoryPressure.path(), &memoryPressure)
        || !connection.registerObject(Names::Tasks.path(), &tasks)
        || !connection.registerObject(Names::StandIn.path(), &control)
        || !connection.registerService(Names::ServiceRoot)) {
        complain(connection.lastError().message());
        return ExitCode::Bus;
    }

    ChildProcess command(ChildProcess::Terminal::Shared);
    if (!options.applicationId.isEmpty()) {
        Application *application = applications.withId(options.applicationId);
        if (!application) {
            complain(QStringLiteral("--as: no manifest has the id \"%1\"").arg(options.applicationId));
            return ExitCode::Usage;
        }
        application->adopt(&command);
    }

    QObject::connect(&command, &ChildProcess::ended, qApp, [&command](const QString &how) {
        if (command.hasFailedToStart())
            complain(QStringLiteral("The command %1").arg(how));
        QCoreApplication::exit(command.shellExitCode());
    });
    QObject::connect(&signals, &TerminationSignals::received, qApp,
                     [](int number) { QCoreApplication::exit(ExitCode::Signal + number); });
    connection.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                       QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), &bus,
                       SIGNAL(lost()));
    QObject::connect(&bus, &PrivateBus::lost, qApp, [&bus] {
        bus.blockSignals(true); // report it once
        complain(QStringLiteral("The private bus has ended"));
        QCoreApplication::exit(ExitCode::Bus);
    });
    QTimer reaping;
    QObject::connect(&reaping, &QTimer::timeout, &reaping,
                     [&processes] { processes.reapOrphans(ChildProcess::running()); });
    reaping.start(ReapingInterval);
    tasks.startAutomatic();
    if (options.watch)
        loader.watch();
    QTimer::singleShot(0, &command, [&command, &options] { command.start(options.command); });
    const int exitCode = QCoreApplication::exec();
    const QSet<pid_t> left = processes.endAll(bus.processId(), ChildProcess::GracePeriod, &LabelledOutput::flushAll);
    LabelledOutput::finishAll();
    for (const pid_t id : left)
        complain(QStringLiteral("The process %1 cannot be ended").arg(id));
    processes.endAll(0, ChildProcess::GracePeriod); // the bus and its child processes, before its directory is removed
    return exitCode;
}
