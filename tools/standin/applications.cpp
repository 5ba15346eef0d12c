// SPDX-License-Identifier: BSD-3-Clause
#include "applications.h"

#include <algorithm>

Applications::Applications(const QVector<Manifest> &manifests, int startTimeout, const Trace &trace, QObject *parent)
    : QObject(parent), m_startTimeout(startTimeout), m_trace(trace)
{
    setManifests(manifests);
}

void Applications::setManifests(const QVector<Manifest> &manifests)
{
    for (Application *application : qAsConst(m_list))
        application->remove();
    for (const Manifest &manifest : manifests) {
        const auto existing = std::find_if(m_list.cbegin(), m_list.cend(), [&manifest](const Application *application) {
            return application->manifest().id == manifest.id;
        });
        if (existing != m_list.cend()) {
            (*existing)->setManifest(manifest);
            continue;
        }
        auto *application = new Application(manifest, m_startTimeout, m_trace, this);
        connect(application, &Application::stateChanged, this, &Applications::stateChanged);
        m_list.append(application);
    }
}

QVector<Application *> Applications::all() const
{
    QVector<Application *> list;
    for (Application *application : m_list) {
        if (!application->isRemoved() || application->isRunning())
            list.append(application);
    }
    return list;
}

Application *Applications::withId(const QString &id) const
{
    const auto list = all();
    for (Application *application : list) {
        if (application->manifest().id == id)
            return application;
    }
    return nullptr;
}

Application *Applications::handlerOf(const QString &intentName) const
{
    for (Application *application : m_list) {
        if (!application->isRemoved() && application->manifest().intents.contains(intentName))
            return application;
    }
    return nullptr;
}

QString Applications::similarIntent(const QString &intentName) const
{
    for (const Application *application : m_list) {
        if (application->isRemoved())
            continue;
        for (const QString &intent : application->manifest().intents) {
            if (intent.compare(intentName, Qt::CaseInsensitive) == 0)
                return intent;
        }
    }
    return {};
}

QString Applications::nameOf(const QString &connection) const
{
    for (const Application *application : m_list) {
        if (application->connection() == connection)
            return application->instanceId();
    }
    return connection;
}
