// SPDX-License-Identifier: BSD-3-Clause
#include "expect.h"

#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QMutex>

#include <cstdio>
#include <cstdlib>

namespace Fuzz {

namespace {

struct Log
{
    QMutex mutex; // QtDBus has a thread, which may log too
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

QStringList openDescriptors()
{
    QStringList targets;
    const QFileInfoList links = QDir(QStringLiteral("/proc/self/fd")).entryInfoList(QDir::AllEntries | QDir::System);
    for (const QFileInfo &link : links)
        targets.append(link.symLinkTarget());
    targets.sort();
    return targets;
}

QString toText(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

} // namespace Fuzz
