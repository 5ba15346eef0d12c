// SPDX-License-Identifier: BSD-3-Clause
#include "process_tree.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QMultiHash>
#include <QtCore/QSet>
#include <QtCore/QThread>
#include <QtCore/QVector>

#include <csignal>
#include <sys/prctl.h>
#include <sys/types.h>

namespace {

/// Every running process of the system by its parent. Those that have ended and wait for their parent do not count.
QMultiHash<pid_t, pid_t> processesByParent()
{
    QMultiHash<pid_t, pid_t> processes;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : names) {
        bool isNumber = false;
        const pid_t id = name.toInt(&isNumber);
        if (!isNumber)
            continue;
        QFile file(QStringLiteral("/proc/%1/stat").arg(id));
        if (!file.open(QIODevice::ReadOnly)) // it is gone already
            continue;
        const QByteArray line = file.readAll(); // 12 (any (name)) S 1 ...
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1 && fields.at(0) != "Z" && fields.at(0) != "X")
            processes.insert(fields.at(1).toInt(), id);
    }
    return processes;
}

QVector<pid_t> descendants()
{
    const QMultiHash<pid_t, pid_t> processes = processesByParent();
    QVector<pid_t> found{pid_t(QCoreApplication::applicationPid())};
    for (int i = 0; i < found.size(); ++i) {
        for (auto it = processes.find(found.at(i)); it != processes.end() && it.key() == found.at(i); ++it)
            found.append(it.value());
    }
    found.removeFirst();
    return found;
}

} // namespace

void ProcessTree::adoptOrphans()
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void ProcessTree::endAll(qint64 spared, int grace)
{
    QElapsedTimer timer;
    timer.start();
    QSet<pid_t> asked;
    for (;;) {
        QVector<pid_t> left = descendants();
        left.removeAll(pid_t(spared));
        if (left.isEmpty())
            return;
        const bool force = timer.elapsed() > grace;
        for (const pid_t id : qAsConst(left)) {
            if (force)
                ::kill(id, SIGKILL);
            else if (!asked.contains(id))
                ::kill(id, SIGTERM);
            asked.insert(id);
        }
        QThread::msleep(5);
    }
}
