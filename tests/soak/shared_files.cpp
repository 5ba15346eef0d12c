// SPDX-License-Identifier: BSD-3-Clause
#include "shared_files.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <unistd.h>

namespace {

const int Count = 64;
const int LongestContent = 4000; // bytes

} // namespace

SharedFiles::SharedFiles(quint32 seed)
{
    QRandomGenerator random(seed);
    for (int i = 0; i < Count; ++i) {
        QByteArray content = QByteArray::number(i) + '\n';
        content.resize(content.size() + random.bounded(LongestContent));
        for (int j = content.indexOf('\n') + 1; j < content.size(); ++j)
            content[j] = char(random.bounded(256));

        const QString name = m_directory.filePath(QString::number(i));
        QFile file(name);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("%s cannot be written: %s", qUtf8Printable(name), qUtf8Printable(file.errorString()));
        m_names << name;
        m_contents.insert(name, content);
    }
}

QString SharedFiles::any(QRandomGenerator &random) const
{
    return m_names.at(random.bounded(m_names.size()));
}

bool SharedFiles::isThat(int descriptor, const QString &name, int access) const
{
    const auto content = m_contents.constFind(name);
    if (content == m_contents.cend() || (::fcntl(descriptor, F_GETFL) & O_ACCMODE) != access)
        return false;
    QByteArray read(content->size() + 1, Qt::Uninitialized);
    // pread(), because the other processes share the position in the file.
    const ssize_t size = ::pread(descriptor, read.data(), size_t(read.size()), 0);
    return size == content->size() && read.startsWith(*content);
}
