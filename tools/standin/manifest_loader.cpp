// SPDX-License-Identifier: BSD-3-Clause
#include "manifest_loader.h"

#include "complain.h"

#include <QtCore/QDir>

namespace {

const int Delay = 100; // milliseconds; editors write a file in several steps

} // namespace

ManifestLoader::ManifestLoader(const QStringList &directories, Applications *applications, Tasks *tasks,
                               const Trace &trace, QObject *parent)
    : QObject(parent), m_directories(directories), m_applications(applications), m_tasks(tasks), m_trace(trace)
{
    m_delay.setSingleShot(true);
    m_delay.setInterval(Delay);
    connect(&m_delay, &QTimer::timeout, this, [this] {
        watchFiles(); // before they are read
        const QStringList errors = reload();
        for (const QString &error : errors)
            complain(error);
    });
    const auto start = qOverload<>(&QTimer::start);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_delay, start);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, &m_delay, start);
}

QStringList ManifestLoader::reload()
{
    const Manifests manifests = readManifests(m_directories);
    if (!manifests.errors.isEmpty())
        return manifests.errors;
    m_applications->setManifests(manifests.list);
    m_tasks->setManifests(manifests.list);
    m_trace.write(QStringLiteral("The manifests were read again"));
    return {};
}

void ManifestLoader::watch()
{
    if (!m_directories.isEmpty())
        m_watcher.addPaths(m_directories);
    watchFiles();
    m_delay.start(); // a manifest may have changed since it was read
}

/// A file that was replaced is not watched any more.
void ManifestLoader::watchFiles()
{
    for (const QString &directory : m_directories) {
        const QFileInfoList files = QDir(directory).entryInfoList({QStringLiteral("*.json")}, QDir::Files);
        for (const QFileInfo &file : files)
            m_watcher.addPath(file.filePath());
    }
}
