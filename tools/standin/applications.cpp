// SPDX-License-Identifier: BSD-3-Clause
#include "applications.h"

Applications::Applications(const QVector<Manifest> &manifests, int startTimeout, const Trace &trace, QObject *parent)
    : QObject(parent)
{
    for (const Manifest &manifest : manifests) {
        auto *application = new Application(manifest, startTimeout, trace, this);
        connect(application, &Application::stateChanged, this, &Applications::stateChanged);
        m_list.append(application);
    }
}

Application *Applications::withId(const QString &id) const
{
    for (Application *application : m_list) {
        if (application->manifest().id == id)
            return application;
    }
    return nullptr;
}

Application *Applications::handlerOf(const QString &intentName) const
{
    for (Application *application : m_list) {
        if (application->manifest().intents.contains(intentName))
            return application;
    }
    return nullptr;
}

QString Applications::nameOf(const QString &connection) const
{
    for (const Application *application : m_list) {
        if (application->connection() == connection)
            return application->instanceId();
    }
    return connection;
}
