// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "application.h"

/// The applications that the manifests describe.
class Applications : public QObject
{
    Q_OBJECT
public:
    Applications(const QVector<Manifest> &manifests, int startTimeout, const Trace &trace, QObject *parent = nullptr);

    /// Adds the new applications, changes the existing ones, and removes the others.
    void setManifests(const QVector<Manifest> &manifests);

    /// All that have a manifest or are running.
    QVector<Application *> all() const;
    /// Returns null if there is none.
    Application *withId(const QString &id) const;
    Application *handlerOf(const QString &intentName) const;
    /// Returns the intent of a manifest that differs from \a intentName in letter case only; null if there is none.
    QString similarIntent(const QString &intentName) const;

    /// Returns the instance id of the application with this bus connection, or \a connection if there is none.
    QString nameOf(const QString &connection) const;

Q_SIGNALS:
    /// Emitted for all applications; see Application::stateChanged().
    void stateChanged(const QString &instanceId, uint state);

private:
    const int m_startTimeout;
    const Trace &m_trace;
    QVector<Application *> m_list;
};
