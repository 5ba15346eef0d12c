// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <algorithm>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

inline sockaddr_un addressOf(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = QFile::encodeName(path);
    Q_ASSERT(name.size() < int(sizeof address.sun_path));
    std::copy(name.begin(), name.end(), static_cast<char *>(address.sun_path));
    return address;
}

/// Closes a descriptor in the destructor.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_number(number) { }
    ~Descriptor() { reset(); }
    Q_DISABLE_COPY(Descriptor)

    int get() const { return m_number; }
    int release() { return std::exchange(m_number, -1); }
    void reset(int number = -1)
    {
        if (m_number >= 0)
            ::close(m_number);
        m_number = number;
    }

private:
    int m_number;
};

/// Returns a listening socket, as the service passes it to a task.
inline int listeningSocket(const QString &path, int backlog = 10)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (::bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        || ::listen(descriptor, backlog) != 0)
        qFatal("The test cannot listen");
    return descriptor;
}

/// A socket without Qt, for the other end of a channel.
class PlainSocket
{
public:
    /// Connects to a listening socket.
    explicit PlainSocket(const QString &path)
        : m_descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const sockaddr_un address = addressOf(path);
        if (::connect(m_descriptor.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            qFatal("The test cannot connect");
    }
    /// Accepts the next connection.
    explicit PlainSocket(int listener)
        : m_descriptor(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK))
    {
        if (m_descriptor.get() < 0)
            qFatal("The test cannot accept");
    }

    /// Sets the size of the send buffer, independently of net.core.wmem_default.
    void makeRoom(int size)
    {
        if (::setsockopt(m_descriptor.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size) != 0)
            qFatal("The test cannot make room");
    }
    bool send(const QByteArray &bytes)
    {
        return ::send(m_descriptor.get(), bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL) == bytes.size();
    }
    /// Returns whether the other end has read all sent bytes.
    bool isRead() const
    {
        int unread = 0;
        return ::ioctl(m_descriptor.get(), SIOCOUTQ, &unread) == 0 && unread == 0;
    }
    /// Returns all bytes received since the construction.
    QByteArray received()
    {
        char part[4096];
        for (;;) {
            const ssize_t size = ::recv(m_descriptor.get(), part, sizeof part, 0);
            if (size <= 0) {
                m_isClosed |= size == 0;
                return m_received;
            }
            m_received.append(part, int(size));
        }
    }
    bool isClosed()
    {
        received();
        return m_isClosed;
    }
    void close() { m_descriptor.reset(); }

private:
    Descriptor m_descriptor;
    QByteArray m_received;
    bool m_isClosed = false;
};

/// Returns the payload as a frame: its length in four bytes, and the payload.
inline QByteArray frame(const QByteArray &payload)
{
    QByteArray bytes(4, 0);
    qToBigEndian(quint32(payload.size()), bytes.data());
    return bytes + payload;
}
