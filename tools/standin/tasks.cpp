// SPDX-License-Identifier: BSD-3-Clause
#include "tasks.h"

#include "complain.h"
#include "descriptors.h"

#include <Core/task_names.h>
#include <DBus/keys.h>
#include <DBus/names.h>

#include <QtDBus/QDBusMessage>

#include <algorithm>

namespace Keys = Corvane::Keys;
namespace Names = Corvane::Names;

namespace {

QString noTimeLeft(const QString &name)
{
    return QStringLiteral("The schedule of %1 has no time left").arg(name);
}

} // namespace

Tasks::Tasks(const QVector<Manifest> &manifests, const Clock &clock, const Trace &trace, QObject *parent)
    : QObject(parent), m_clock(clock), m_trace(trace)
{
    Corvane::registerRecordTypes();
    for (const Manifest &manifest : manifests) {
        for (const TaskManifest &taskManifest : manifest.tasks)
            add(manifest.id, taskManifest);
    }
}

BackgroundTask *Tasks::add(const QString &applicationId, const TaskManifest &manifest)
{
    auto *task = new BackgroundTask(applicationId, manifest, m_clock, m_trace, this);
    connect(task, &BackgroundTask::changed, this, [this] { Q_EMIT StateChanged(states()); });
    m_list.append(task);
    return task;
}

void Tasks::setManifests(const QVector<Manifest> &manifests)
{
    QVector<BackgroundTask *> kept;
    QVector<BackgroundTask *> added;
    for (const Manifest &manifest : manifests) {
        for (const TaskManifest &taskManifest : manifest.tasks) {
            const QString name = Core::qualifiedTaskName(manifest.id, taskManifest.id);
            const auto existing = std::find_if(m_list.cbegin(), m_list.cend(),
                                               [&name](const BackgroundTask *task) { return task->name() == name; });
            BackgroundTask *task = existing == m_list.cend() ? nullptr : *existing;
            if (!task || task->isRemoved())
                added.append(task = task ? task : add(manifest.id, taskManifest));
            task->setManifest(taskManifest);
            kept.append(task);
        }
    }
    for (BackgroundTask *task : qAsConst(m_list)) {
        if (!kept.contains(task))
            task->remove();
    }
    Q_EMIT StateChanged(states());
    for (BackgroundTask *task : qAsConst(added)) {
        if (task->state() == BackgroundTask::Stopped) // else the process of an earlier manifest is running
            startAutomatic(task);
    }
}

QVector<BackgroundTask *> Tasks::all() const
{
    QVector<BackgroundTask *> list;
    for (BackgroundTask *task : m_list) {
        if (!task->isRemoved() || task->state() != BackgroundTask::Stopped)
            list.append(task);
    }
    return list;
}

QVariantMap Tasks::GetAll() const
{
    return {{Keys::State, QVariant::fromValue(states())}};
}

void Tasks::Start(const QString &name, const QStringList &arguments, const QVariantMap &properties)
{
    m_trace.write(QStringLiteral("Start %1").arg(Trace::quoted(name)));
    BackgroundTask *task = find(name);
    if (!task)
        return;
    if (holdsDescriptors(QVariant(properties)))
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("Descriptors do not describe a task"));
    else if (task->state() == BackgroundTask::Running)
        sendErrorReply(Names::ErrorPrefix + QLatin1String("ApplicationAlreadyRunning"),
                       QStringLiteral("%1 runs already").arg(name));
    else if (!task->start(arguments, properties))
        sendErrorReply(QDBusError::InvalidArgs, noTimeLeft(name));
}

void Tasks::Stop(const QString &name, bool force)
{
    m_trace.write(
        QStringLiteral("Stop %1%2").arg(Trace::quoted(name), force ? QStringLiteral(" by force") : QString()));
    if (BackgroundTask *task = find(name))
        task->stop(force);
}

void Tasks::startAutomatic()
{
    for (BackgroundTask *task : qAsConst(m_list))
        startAutomatic(task);
}

void Tasks::startAutomatic(BackgroundTask *task)
{
    const QVariantMap properties = task->manifest().properties;
    if (properties.value(Keys::Autostart).toBool() && !task->start({}, properties))
        complain(noTimeLeft(task->name()));
}

QVector<Corvane::TaskState> Tasks::states() const
{
    QVector<Corvane::TaskState> list;
    const auto tasks = all();
    for (const BackgroundTask *task : tasks)
        list.append({task->manifest().id, task->state(), task->properties()});
    return list;
}

BackgroundTask *Tasks::find(const QString &name)
{
    const auto tasks = all();
    for (BackgroundTask *task : tasks) {
        if (task->name() == name)
            return task;
    }
    sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("No manifest has the task %1").arg(Trace::quoted(name)));
    return nullptr;
}
