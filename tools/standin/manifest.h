// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariantMap>
#include <QtCore/QVector>

struct TaskManifest
{
    QString id; ///< the same characters as an application's, without dots
    QStringList command;
    QVariantMap properties; ///< what the task is started with if it starts with the stand-in, "Autostart"
};

/**
 * What the stand-in knows of an application, from a file such as
 * \code
 * {
 *     "id": "viewer",
 *     "name": "Viewer",
 *     "command": ["corvane-example-viewer"],
 *     "intents": ["OpenURI", "WriteNote"],
 *     "tasks": [{"id": "index", "command": ["corvane-example-indexer"], "properties": {"Autostart": true}}]
 * }
 * \endcode
 */
struct Manifest
{
    QString file;
    QString id; ///< made of the characters of a bus name, since instance ids are bus names that begin with it
    QString name; ///< for people; the id if the file gives none
    QStringList command; ///< a program that has a '/' in it and is relative is found from the file's directory
    QStringList intents; ///< what it handles; may be empty
    QVector<TaskManifest> tasks; ///< what it can have run in the background; may be empty
};

struct Manifests
{
    QVector<Manifest> list;
    QStringList errors; ///< for people, one line each: file, line or key, what was expected, what was found
};

/// Reads every *.json file in the directories. An id, and an intent, belongs to one application only.
Manifests readManifests(const QStringList &directories);
