// SPDX-License-Identifier: BSD-3-Clause
#include "process_figures.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <unistd.h>

ProcessFigures ProcessFigures::of(pid_t process)
{
    const QString directory = QString("/proc/%1/").arg(process);
    QFile file(directory + "smaps_rollup");
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read: %s", qUtf8Printable(file.fileName()), qUtf8Printable(file.errorString()));

    ProcessFigures figures;
    const QList<QByteArray> lines = file.readAll().split('\n');
    file.close();
    for (const QByteArray &line : lines) { // "Anonymous:           1234 kB"
        if (line.startsWith("Anonymous:") || line.startsWith("Swap:"))
            figures.memory += line.simplified().split(' ').at(1).toLongLong();
    }
    figures.descriptors =
        QDir(directory + "fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
    if (process == ::getpid())
        --figures.descriptors; // the one with which the directory was read
    return figures;
}
