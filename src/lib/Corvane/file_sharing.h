// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace Corvane {

/**
 * Files that travel with an intent or a reply.
 *
 * A map names them, by JSON path, under "readFiles" and "writeFiles"; opened for reading, and for reading and writing,
 * they stand in it under "readFds" and "writeFds", in the same order. The map owns these descriptors.
 */
class FileSharing
{
public:
    /// Names the files of a handler's reply; both lists are written, empty or not.
    static void setFileLists(const QStringList &readFiles, const QStringList &writeFiles, QVariantMap &map);

    /// Returns the hints with each mixed list of paths as a list of texts: an element that is not a text becomes one, a
    /// null an empty path. As part of any other hint, the nulls would be left out.
    static QJsonObject withTextPaths(const QJsonObject &hints);

    /// If the intent is "OpenURI", names what its "uri" says as the files to read, in place of any other.
    static void setUriHint(const QString &intentName, const QJsonObject &params, QVariantMap &map);

    /**
     * Opens the files that \a source names at the paths listed in \a map and puts their descriptors into it.
     *
     * Plain names and file: URLs name files; all else is passed over. A missing file to be written is made, and no file
     * is truncated. The first file of a list that cannot be opened is logged and ends that list. Never blocks on a FIFO
     * or a device. Afterwards the process has room to duplicate each of the descriptors once more, as sending them
     * does.
     */
    static void exportFiles(const QJsonObject &source, QVariantMap &map);
};

} // namespace Corvane
