// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"
#include "tasks.h"

#include <QtCore/QFileSystemWatcher>
#include <QtCore/QTimer>

/// Reads the manifests again while the stand-in is running.
class ManifestLoader : public QObject
{
    Q_OBJECT
public:
    ManifestLoader(const QStringList &directories, Applications *applications, Tasks *tasks, const Trace &trace,
                   QObject *parent = nullptr);

    /// Applies the manifests. Returns the errors; nothing is changed if there are any.
    QStringList reload();

    /// Reloads whenever a manifest changes, appears or disappears, and prints errors.
    void watch();

private:
    void watchFiles();

    const QStringList m_directories;
    Applications *const m_applications;
    Tasks *const m_tasks;
    const Trace &m_trace;
    QFileSystemWatcher m_watcher;
    QTimer m_delay;
};
