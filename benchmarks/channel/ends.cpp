// SPDX-License-Identifier: BSD-3-Clause
#include "ends.h"

#include <Corvane/task_messaging.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDataStream>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QQueue>
#include <QtCore/QtEndian>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

#include <array>
#include <cstdio>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

void tellThatItListens()
{
    std::puts("listening");
    std::fflush(stdout);
}

/// The base of the ends with an event loop: a queue of received messages.
class QueueEnd : public End
{
public:
    void setMessage(const QJsonObject &message) override { m_message = message; }
    void send() override { write(m_message); }
    void sendReceived() override { write(m_received); }
    bool receive() override
    {
        while (m_queue.isEmpty() && !m_gone)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (m_queue.isEmpty())
            return false;
        m_received = m_queue.dequeue();
        return true;
    }

protected:
    virtual void write(const QJsonObject &message) = 0;
    void onReceived(const QJsonObject &message) { m_queue.enqueue(message); }
    void onGone() { m_gone = true; }

private:
    QJsonObject m_message;
    QJsonObject m_received;
    QQueue<QJsonObject> m_queue;
    bool m_gone = false;
};

class LibraryEnd : public QueueEnd
{
public:
    explicit LibraryEnd(std::unique_ptr<Corvane::TaskMessaging> channel) : m_channel(std::move(channel))
    {
        QObject::connect(m_channel.get(), &Corvane::TaskMessaging::messageReceived, m_channel.get(),
                         [this](const QJsonObject &message) { onReceived(message); });
        QObject::connect(m_channel.get(), &Corvane::TaskMessaging::stateChanged, m_channel.get(),
                         [this](Corvane::TaskMessaging::State state) {
                             if (state == Corvane::TaskMessaging::Unconnected)
                                 onGone();
                         });
    }

private:
    void write(const QJsonObject &message) override
    {
        if (!m_channel->sendMessage(message))
            qFatal("The channel is not connected");
    }

    std::unique_ptr<Corvane::TaskMessaging> m_channel;
};

class QLocalSocketEnd : public QueueEnd
{
public:
    explicit QLocalSocketEnd(QLocalSocket *socket) : m_socket(socket), m_stream(socket)
    {
        QObject::connect(socket, &QLocalSocket::readyRead, socket, [this] { read(); });
        QObject::connect(socket, &QLocalSocket::disconnected, socket, [this] { onGone(); });
        read();
    }

private:
    void write(const QJsonObject &message) override
    {
        m_stream << QJsonDocument(message).toJson(QJsonDocument::Compact);
    }
    void read()
    {
        while (!m_stream.atEnd()) {
            QByteArray frame;
            m_stream.startTransaction();
            m_stream >> frame;
            if (!m_stream.commitTransaction())
                return;
            onReceived(QJsonDocument::fromJson(frame).object());
        }
    }

    std::unique_ptr<QLocalSocket> m_socket;
    QDataStream m_stream;
};

/// An end without Qt's event loop, with JSON or only with bytes.
template<bool Json>
class SocketEnd : public End
{
public:
    explicit SocketEnd(int descriptor) : m_descriptor(descriptor) { }
    ~SocketEnd() override { ::close(m_descriptor); }
    Q_DISABLE_COPY_MOVE(SocketEnd)

    void setMessage(const QJsonObject &message) override
    {
        m_message = message;
        m_frame = frameOf(message);
    }
    void send() override { write(Json ? frameOf(m_message) : m_frame); }
    void sendReceived() override
    {
        if (Json)
            write(frameOf(m_receivedMessage));
        else
            write(m_received);
    }
    bool receive() override
    {
        m_received.resize(int(sizeof(quint32)));
        if (!read(m_received.data(), m_received.size()))
            return false;
        const auto size = qFromBigEndian<quint32>(m_received.constData());
        m_received.resize(int(sizeof(quint32) + size));
        if (!read(m_received.data() + sizeof(quint32), int(size)))
            return false;
        if (Json)
            m_receivedMessage = QJsonDocument::fromJson(m_received.mid(sizeof(quint32))).object();
        return true;
    }

private:
    static QByteArray frameOf(const QJsonObject &message)
    {
        const QByteArray text = QJsonDocument(message).toJson(QJsonDocument::Compact);
        QByteArray frame(int(sizeof(quint32)), Qt::Uninitialized);
        qToBigEndian(quint32(text.size()), frame.data());
        return frame + text;
    }
    void write(const QByteArray &frame) const
    {
        for (int done = 0; done < frame.size();) {
            const ssize_t size =
                ::send(m_descriptor, frame.constData() + done, size_t(frame.size() - done), MSG_NOSIGNAL);
            if (size < 0)
                qFatal("The connection is lost");
            done += int(size);
        }
    }
    /// Reads all available data, so that a frame seldom needs more than one call.
    bool read(char *data, int size)
    {
        while (size > 0) {
            if (m_begin == m_end) {
                const ssize_t count = ::recv(m_descriptor, m_buffer.data(), m_buffer.size(), 0);
                if (count <= 0)
                    return false;
                m_begin = 0;
                m_end = int(count);
            }
            const int count = qMin(size, m_end - m_begin);
            std::copy_n(m_buffer.data() + m_begin, count, data);
            m_begin += count;
            data += count;
            size -= count;
        }
        return true;
    }

    int m_descriptor;
    QJsonObject m_message;
    QByteArray m_frame;
    QByteArray m_received;
    QJsonObject m_receivedMessage;
    std::array<char, 65536> m_buffer;
    int m_begin = 0;
    int m_end = 0;
};

sockaddr_un addressOf(const QString &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
    return address;
}

int listeningSocket(const QString &path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (::bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        || ::listen(descriptor, 1) != 0)
        qFatal("%s: cannot listen", qPrintable(path));
    return descriptor;
}

int connectedSocket(const QString &path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        qFatal("%s: cannot connect", qPrintable(path));
    return descriptor;
}

std::unique_ptr<End> socketEnd(const QString &kind, int descriptor)
{
    if (kind == QLatin1String("raw socket"))
        return std::make_unique<SocketEnd<true>>(descriptor);
    return std::make_unique<SocketEnd<false>>(descriptor);
}

} // namespace

std::unique_ptr<End> connectedEnd(const QString &kind, const QString &path)
{
    if (kind == QLatin1String("corvane"))
        return std::make_unique<LibraryEnd>(std::make_unique<Corvane::TaskMessaging>(path));
    if (kind == QLatin1String("QLocalSocket")) {
        auto socket = std::make_unique<QLocalSocket>();
        socket->connectToServer(path);
        if (!socket->waitForConnected())
            qFatal("%s: cannot connect", qPrintable(path));
        return std::make_unique<QLocalSocketEnd>(socket.release());
    }
    return socketEnd(kind, connectedSocket(path));
}

std::unique_ptr<End> listeningEnd(const QString &kind, const QString &path)
{
    if (kind == QLatin1String("corvane")) {
        auto end = std::make_unique<LibraryEnd>(std::make_unique<Corvane::TaskMessaging>(listeningSocket(path)));
        tellThatItListens();
        return end;
    }
    if (kind == QLatin1String("QLocalSocket")) {
        auto *const server = new QLocalServer; // for the whole process
        server->listen(path);
        tellThatItListens();
        if (!server->waitForNewConnection(-1))
            qFatal("%s: nobody has come", qPrintable(path));
        QLocalSocket *const socket = server->nextPendingConnection();
        socket->setParent(nullptr);
        return std::make_unique<QLocalSocketEnd>(socket);
    }
    const int listener = listeningSocket(path);
    tellThatItListens();
    const int descriptor = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    return socketEnd(kind, descriptor);
}
