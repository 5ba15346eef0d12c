// SPDX-License-Identifier: BSD-3-Clause
#include "trace.h"

#include <DBus/keys.h>
#include <DBus/types.h>
#include <DBus/variants.h>

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QTextStream>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <array>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int LongestText = 300;

QString cut(const QString &text)
{
    if (text.size() <= LongestText)
        return text;
    QString begin = text.left(LongestText);
    if (begin.at(begin.size() - 1).isHighSurrogate())
        begin.chop(1);
    return begin + QStringLiteral("...");
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
    std::array<char, PATH_MAX> target{};
    const QString link = QStringLiteral("/proc/self/fd/%1").arg(descriptor);
    if (::readlink(qPrintable(link), target.data(), target.size() - 1) < 0)
        return QStringLiteral("a descriptor of unknown origin");
    return QStringLiteral("%1 (%2, %3 bytes)")
        .arg(Trace::quoted(QFile::decodeName(target.data())), mode, QString::number(status.st_size));
}

} // namespace

void Trace::send(const QString &text, bool toStandardError) const
{
    if (m_listener)
        m_listener(text);
    if (!toStandardError)
        return;
    QTextStream out(stderr);
    out << "corvane-standin: ";
    if (m_options.timestamps)
        out << time(QDateTime::currentDateTime()) << ' ';
    out << text << Qt::endl;
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

QString Trace::hints(const QVariantMap &map)
{
    QVariantMap shown = map;
    shown.remove(Corvane::Keys::ReadFds); // see descriptors()
    shown.remove(Corvane::Keys::WriteFds);
    if (shown.isEmpty())
        return {};
    const auto object = QJsonObject::fromVariantMap(Corvane::withoutBusTypes(shown));
    return QStringLiteral(" with the hints ")
        + cut(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

QString Trace::time(const QDateTime &time)
{
    return time.toString(QStringLiteral("HH:mm:ss.zzz"));
}

QString Trace::descriptors(const QVariantMap &map)
{
    const auto list = [&map](const QString &pathsKey, const QString &key, const QString &label) {
        QStringList texts;
        const auto files = Corvane::fromBus<QList<QDBusUnixFileDescriptor>>(map.value(key));
        for (const QDBusUnixFileDescriptor &file : files)
            texts.append(described(file));
        if (texts.isEmpty() && !Corvane::fromBus<QStringList>(map.value(pathsKey)).isEmpty())
            texts.append(QStringLiteral("no file"));
        return texts.isEmpty() ? QString() : label + texts.join(QLatin1String(", "));
    };
    return list(Corvane::Keys::ReadFiles, Corvane::Keys::ReadFds, QStringLiteral(", to read: "))
        + list(Corvane::Keys::WriteFiles, Corvane::Keys::WriteFds, QStringLiteral(", to read and write: "));
}
