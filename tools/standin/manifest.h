// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariantMap>
#include <QtCore/QVector>

struct TaskManifest
{
    QString id; ///< the characters of an application id, without dots
    QStringList command;
    QVariantMap properties; ///< the description of a task that starts with the stand-in, as in Corvane::Task
};

/**
 * The description of an application, from a file such as
 * \code
 * {
 *     "id": "viewer",
 *     "name": "Viewer",
 *     "command": ["corvane-example-viewer"],
 *     "intents": ["OpenURI", "WriteNote"],
 *     "tasks": [{"id": "index", "command": ["corvane-example-indexer"], "properties": {"Autostart": true}}]
 * }
 * \endcode
 * data/manifest/corvane-manifest.schema.json describes all keys and values.
 */
struct Manifest
{
    QString file;
    QString id; ///< characters of a bus name, because instance ids are bus names that begin with it
    QString name; ///< for people; the id if the file has none
    QStringList command; ///< a relative program name with a '/' is relative to the directory of the file
    QStringList intents; ///< the names of the intents that it handles; may be empty
    QVector<TaskManifest> tasks; ///< its background tasks; may be empty
};

struct Manifests
{
    QVector<Manifest> list;
    QStringList errors; ///< one line each, for people: file, line or key, expected value, found value
};

/// Reads all *.json files in the directories. Ids and intents must be unique.
Manifests readManifests(const QStringList &directories);
