// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

namespace Corvane {

class MessageMeter;

/**
 * The files of an intent or of a reply.
 *
 * A map lists the JSON paths of the files under "readFiles" and "writeFiles". The file descriptors are in the same map,
 * in the same order: under "readFds" opened for reading, under "writeFds" opened for reading and writing. The map owns
 * the file descriptors.
 */
class FileSharing
{
public:
    /// Stores both lists of JSON paths in \a map, even if they are empty.
    static void setFileLists(const QStringList &readFiles, const QStringList &writeFiles, QVariantMap &map);

    /// Returns the hints of an intent as they are converted for the bus. All elements of mixed path lists are strings:
    /// a null, an array or an object becomes an empty path. Otherwise the conversion would omit nulls. For the intent
    /// "OpenURI", "readFiles" is removed, because setUriHint() replaces it.
    static QJsonObject convertibleHints(const QString &intentName, const QJsonObject &hints);

    /// For the intent "OpenURI", replaces "readFiles" by the path of the "uri" in \a params.
    static void setUriHint(const QString &intentName, const QJsonObject &params, QVariantMap &map);

    /**
     * Opens the files that \a source names at the paths in \a map, and adds the file descriptors to \a map.
     *
     * A string names a file if it is a file: URL or has no colon. Other values are skipped. A missing file is created
     * if it is opened for writing. No file is truncated. If a file cannot be opened, a warning is logged and the rest
     * of its list is skipped. The call never blocks on a FIFO or a device. It ensures that the process has a free
     * descriptor for the duplicate of each file descriptor, because sending a message duplicates them.
     */
    static void exportFiles(const QJsonObject &source, QVariantMap &map);

    /// Does the same, except that it stops at the first file that cannot be opened, and logs nothing. Returns a
    /// sentence with the name of that file and the reason; an empty text if all files are open.
    static QString openFiles(const QJsonObject &source, QVariantMap &map);

    enum Mode {
        Optional, ///< exportFiles(): the message is sent without the files that cannot be opened.
        Required, ///< openFiles(): the message is not sent if a file cannot be opened.
    };
    /// Opens the files, and adds \a map to the message that \a meter measures. Opens no file if the message is over the
    /// limits without file descriptors. Returns the reason why the message cannot be sent; an empty text if it can.
    static QString addTo(MessageMeter &meter, const QJsonObject &source, QVariantMap &map, Mode mode);
};

} // namespace Corvane
