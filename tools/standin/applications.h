// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "application.h"

/// The applications that the manifests describe.
class Applications : public QObject
{
    Q_OBJECT
public:
    Applications(const QVector<Manifest> &manifests, int startTimeout, const Trace &trace, QObject *parent = nullptr);

    /// Null if there is none.
    Application *withId(const QString &id) const;
    Application *handlerOf(const QString &intentName) const;

    /// The instance id of the application that has this connection to the bus, or else the connection itself.
    QString nameOf(const QString &connection) const;

Q_SIGNALS:
    /// What has become of an instance of one of them; see Application::stateChanged().
    void stateChanged(const QString &instanceId, uint state);

private:
    QVector<Application *> m_list;
};
