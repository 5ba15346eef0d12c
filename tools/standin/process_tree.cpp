// SPDX-License-Identifier: BSD-3-Clause
#include "process_tree.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QThread>
#include <QtCore/QVector>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Process
{
    pid_t id;
    pid_t parent;
    bool hasEnded; ///< and is a zombie
};

QStringList numbersIn(const QString &directory)
{
    return QDir(directory).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs);
}

/// Returns all processes of the system.
QVector<Process> processes()
{
    QVector<Process> list;
    const QString proc = QStringLiteral("/proc");
    const QStringList names = numbersIn(proc);
    for (const QString &name : names) {
        QFile file(QStringLiteral("/proc/%1/stat").arg(name));
        if (!file.open(QIODevice::ReadOnly)) // it has ended
            continue;
        const QByteArray line = file.readAll(); // 12 (any (name)) S 1 ...
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.size() < 2)
            continue;
        // A process whose first thread has ended has the state Z too, but it has other threads.
        const bool hasEnded = (fields.at(0) == "Z" && numbersIn(QStringLiteral("/proc/%1/task").arg(name)).size() <= 1)
            || fields.at(0) == "X";
        list.append({name.toInt(), fields.at(1).toInt(), hasEnded});
    }
    return list;
}

} // namespace

ProcessTree::ProcessTree()
{
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

void ProcessTree::reapOrphans(const QSet<pid_t> &others) const
{
    const QVector<Process> all = processes();
    for (const Process &process : all) {
        if (process.parent == ::getpid() && process.hasEnded && !others.contains(process.id))
            ::waitpid(process.id, nullptr, WNOHANG);
    }
}

/// Those that have not ended, but for \a spared and those below it.
QSet<pid_t> ProcessTree::descendants(pid_t spared) const
{
    const QVector<Process> all = processes();
    QVector<pid_t> found{::getpid()};
    for (int i = 0; i < found.size(); ++i) {
        for (const Process &process : all) {
            if (process.parent == found.at(i) && process.id != spared && !process.hasEnded)
                found.append(process.id);
        }
    }
    found.removeFirst();
    return {found.cbegin(), found.cend()};
}

QSet<pid_t> ProcessTree::endAll(pid_t spared, int grace, void (*meanwhile)()) const
{
    const QDeadlineTimer forced(grace);
    const QDeadlineTimer givenUp(qint64(grace) * 2);
    QSet<pid_t> asked;
    for (;;) {
        const QSet<pid_t> left = descendants(spared);
        if (left.isEmpty() || givenUp.hasExpired())
            return left;
        for (const pid_t id : left) {
            if (forced.hasExpired()) {
                ::kill(id, SIGKILL);
            } else if (!asked.contains(id)) {
                ::kill(id, SIGTERM);
                ::kill(id, SIGCONT); // a stopped process would not handle SIGTERM
            }
        }
        asked += left;
        meanwhile();
        QThread::msleep(5);
    }
}
