// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>

/**
 * What the stand-in knows of an application, from a file such as
 * \code
 * {
 *     "id": "viewer",
 *     "name": "Viewer",
 *     "command": ["corvane-example-viewer"],
 *     "intents": ["OpenURI", "WriteNote"]
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
};

struct Manifests
{
    QVector<Manifest> list;
    QStringList errors; ///< for people, one line each: file, line or key, what was expected, what was found
};

/// Reads every *.json file in the directories. An id, and an intent, belongs to one application only.
Manifests readManifests(const QStringList &directories);
