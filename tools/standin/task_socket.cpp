// SPDX-License-Identifier: BSD-3-Clause
#include "task_socket.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

TaskSocket::TaskSocket(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= int(sizeof address.sun_path)) {
        m_problem = QStringLiteral("%1 is too long for a socket").arg(path);
        return;
    }
    std::memcpy(address.sun_path, name.constData(), size_t(name.size()));

    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    m_descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const mode_t mask = ::umask(0077); // only this user may connect
    const bool listens = ::bind(m_descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
        && ::listen(m_descriptor, SOMAXCONN) == 0;
    const int error = errno;
    ::umask(mask);
    if (!listens) {
        m_problem = QStringLiteral("%1 cannot be made: %2").arg(path, qt_error_string(error));
        ::close(m_descriptor);
        m_descriptor = -1;
    }
}

TaskSocket::~TaskSocket()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}
