// SPDX-License-Identifier: BSD-3-Clause
#include "trace.h"

#include <DBus/types.h>

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QTextStream>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

const int LongestText = 300;

QString cut(const QString &text)
{
    return text.size() > LongestText ? text.left(LongestText) + QStringLiteral("...") : text;
}

QString described(const QDBusUnixFileDescriptor &file)
{
    struct stat status = {};
    const int descriptor = file.fileDescriptor();
    if (::fstat(descriptor, &status) != 0)
        return QStringLiteral("a closed descriptor");
    const int access = ::fcntl(descriptor, F_GETFL) & O_ACCMODE;
    const QString mode = access == O_RDONLY ? QStringLiteral("read-only")
        : access == O_WRONLY                ? QStringLiteral("write-only")
                                            : QStringLiteral("read-write");
    const QString target = QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(descriptor));
    return QStringLiteral("%1 (%2, %3 bytes)").arg(Trace::quoted(target), mode).arg(status.st_size);
}

} // namespace

void Trace::write(const QString &text) const
{
    if (m_on)
        QTextStream(stderr) << "corvane-standin: " << text << Qt::endl;
}

QString Trace::quoted(const QString &text)
{
    const QByteArray array = QJsonDocument(QJsonArray{cut(text)}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

QString Trace::json(const QVariant &value)
{
    const auto object = qdbus_cast<QJsonObject>(value);
    return cut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

QString Trace::descriptors(const QVariantMap &map)
{
    const auto list = [&map](const QString &key, const QString &label) {
        QStringList texts;
        const auto files = qdbus_cast<QList<QDBusUnixFileDescriptor>>(map.value(key));
        for (const QDBusUnixFileDescriptor &file : files)
            texts.append(described(file));
        return texts.isEmpty() ? QString() : label + texts.join(QLatin1String(", "));
    };
    return list(QStringLiteral("readFds"), QStringLiteral(", to read: "))
        + list(QStringLiteral("writeFds"), QStringLiteral(", to read and write: "));
}
