// SPDX-License-Identifier: BSD-3-Clause
#include "expect.h"

#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QMutex>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

namespace Fuzz {

namespace {

struct Log
{
    QMutex mutex; // the thread of QtDBus may log too
    QStringList warnings;
};

Log &collected()
{
    static Log log;
    return log;
}

void collect(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type == QtFatalMsg)
        fail(text);
    const QMutexLocker lock(&collected().mutex);
    if (type == QtWarningMsg || type == QtCriticalMsg)
        collected().warnings.append(text);
}

} // namespace

void fail(const QString &text)
{
    std::fprintf(stderr, "\nFinding: %s\n", qUtf8Printable(text));
    std::abort();
}

QStringList takeWarnings()
{
    static const QtMessageHandler previous = qInstallMessageHandler(collect);
    Q_UNUSED(previous)
    const QMutexLocker lock(&collected().mutex);
    return std::exchange(collected().warnings, {});
}

void expectWarnings(QStringList expected)
{
    QStringList actual = takeWarnings();
    actual.sort();
    expected.sort();
    expectEqual("Warnings", actual, expected);
}

bool operator==(const OpenDescriptor &a, const OpenDescriptor &b)
{
    return a.number == b.number && a.device == b.device && a.inode == b.inode;
}

QDebug operator<<(QDebug debug, const OpenDescriptor &descriptor)
{
    const QString link = QString("/proc/self/fd/%1").arg(descriptor.number);
    return debug << QString("%1 (inode %2)").arg(QFileInfo(link).symLinkTarget()).arg(descriptor.inode);
}

QVector<OpenDescriptor> openDescriptors(int end)
{
    // One call of poll() checks all numbers, much faster than reading /proc/self/fd. The kernel assigns the lowest free
    // number, so a descriptor that stays open has one of these numbers.
    static std::vector<pollfd> asked = [] {
        rlimit limit = {};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        std::vector<pollfd> all(std::min<std::size_t>(limit.rlim_cur, MaxDescriptorsAsked));
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i].fd = int(i);
        return all;
    }();
    const std::size_t count = std::min(asked.size(), std::size_t(end));
    while (::poll(asked.data(), count, 0) < 0) {
        if (errno != EINTR)
            fail("Cannot ask what is open: " + qt_error_string(errno));
    }
    QVector<OpenDescriptor> open;
    for (std::size_t i = 0; i < count; ++i) {
        const pollfd &descriptor = asked[i];
        struct stat status = {};
        if ((descriptor.revents & POLLNVAL) == 0 && ::fstat(descriptor.fd, &status) == 0)
            open.append({descriptor.fd, status.st_dev, status.st_ino});
    }
    return open;
}

QString temporaryDirectory()
{
    const QString inMemory = "/dev/shm";
    static const QTemporaryDir directory((QFileInfo(inMemory).isWritable() ? inMemory : QDir::tempPath())
                                         + "/corvane-fuzz-XXXXXX");
    if (!directory.isValid())
        fail(directory.errorString());
    return directory.path();
}

QString toText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace Fuzz
