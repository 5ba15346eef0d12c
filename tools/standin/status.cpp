// SPDX-License-Identifier: BSD-3-Clause
#include "status.h"

#include <QtCore/QJsonArray>
#include <QtCore/QTextStream>

#include <array>

namespace {

/// Returns the name of a Corvane::ApplicationState.
QString applicationState(uint state)
{
    static const std::array<const char *, 6> names{"unknown",    "launching", "foreground",
                                                   "background", "suspended", "stopped"};
    return QString::fromLatin1(names.at(state));
}

QString taskState(BackgroundTask::State state)
{
    static const std::array<const char *, 3> names{"stopped", "running", "waiting"};
    return QString::fromLatin1(names.at(state));
}

QString joined(const QJsonValue &texts)
{
    return texts.toVariant().toStringList().join(QStringLiteral(", "));
}

} // namespace

QVariantList Status::ofApplications(const Applications &applications)
{
    QVariantList list;
    const auto all = applications.all();
    for (const Application *application : all) {
        const Manifest &manifest = application->manifest();
        QVariantMap map{{QStringLiteral("id"), manifest.id},
                        {QStringLiteral("name"), manifest.name},
                        {QStringLiteral("manifest"), manifest.file},
                        {QStringLiteral("state"), applicationState(application->state())},
                        {QStringLiteral("intents"), application->isRemoved() ? QStringList() : manifest.intents}};
        if (application->isRunning()) {
            map.insert(QStringLiteral("instanceId"), application->instanceId());
            map.insert(QStringLiteral("processId"), int(application->processId()));
        }
        list.append(map);
    }
    return list;
}

QVariantList Status::ofTasks(const Tasks &tasks)
{
    QVariantList list;
    const auto all = tasks.all();
    for (const BackgroundTask *task : all) {
        QVariantMap map{{QStringLiteral("id"), task->name()},
                        {QStringLiteral("state"), taskState(task->state())},
                        {QStringLiteral("properties"), task->properties()}};
        if (task->processId() > 0)
            map.insert(QStringLiteral("processId"), int(task->processId()));
        list.append(map);
    }
    return list;
}

QString Status::text(const QJsonObject &status)
{
    const auto value = [](const QJsonObject &object, const char *key) {
        return object.value(QLatin1String(key)).toVariant().toString();
    };
    QString result;
    QTextStream out(&result);
    out << "stand-in " << value(status, "name") << " (process " << value(status, "processId") << "), started in "
        << value(status, "directory") << '\n'
        << "bus: " << value(status, "busAddress") << '\n'
        << "clock: " << value(status, "now") << '\n'
        << "memory pressure: " << value(status, "memoryLevel") << '\n';
    const QJsonArray applications = status.value(QLatin1String("applications")).toArray();
    for (const QJsonValue &element : applications) {
        const QJsonObject application = element.toObject();
        out << "application " << value(application, "id") << ": " << value(application, "state");
        if (application.contains(QLatin1String("instanceId")))
            out << ", " << value(application, "instanceId") << " (process " << value(application, "processId") << ')';
        const QString intents = joined(application.value(QLatin1String("intents")));
        if (!intents.isEmpty())
            out << ", handles " << intents;
        out << '\n';
    }
    const QJsonArray tasks = status.value(QLatin1String("tasks")).toArray();
    for (const QJsonValue &element : tasks) {
        const QJsonObject task = element.toObject();
        const QJsonObject properties = task.value(QLatin1String("properties")).toObject();
        out << "task " << value(task, "id") << ": " << value(task, "state");
        if (task.contains(QLatin1String("processId")))
            out << " (process " << value(task, "processId") << ')';
        if (properties.contains(QLatin1String("NextRun")))
            out << ", next run " << value(properties, "NextRun");
        if (properties.contains(QLatin1String("LastRun")))
            out << ", last run " << value(properties, "LastRun");
        if (properties.contains(QLatin1String("LastExitCode")))
            out << " with exit code " << value(properties, "LastExitCode");
        else if (properties.contains(QLatin1String("LastSignal")))
            out << " ended by signal " << value(properties, "LastSignal");
        out << '\n';
    }
    return result;
}
