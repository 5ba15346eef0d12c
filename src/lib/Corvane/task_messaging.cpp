// SPDX-License-Identifier: BSD-3-Clause
#include "task_messaging.h"
#include "task_messaging_p.h"

#include <QtCore/QDebug>
#include <QtCore/QJsonDocument>
#include <QtCore/QPointer>
#include <QtCore/QSocketNotifier>
#include <QtCore/QtEndian>

#include <algorithm>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Corvane {

namespace {

// A frame is a byte array as QDataStream writes it: the big-endian length, then the payload.
constexpr int LengthSize = sizeof(quint32);
constexpr int MaxUnsplitFrame = 32 * 1024; // a longer frame may arrive in two pieces
constexpr quint32 NullLength = 0xffffffff; // a null byte array, which has no payload

int socketOption(int descriptor, int option)
{
    int value = 0;
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

/// Returns whether the other end is closed. Qt changes the state of the socket later, in the event loop.
bool isHungUp(const QLocalSocket &socket)
{
    pollfd entry{int(socket.socketDescriptor()), POLLRDHUP, 0};
    return ::poll(&entry, 1, 0) > 0;
}

/// Returns the payload size of the frame at the beginning of \a data, or -1 if the frame is incomplete.
int payloadSize(const char *data, int available)
{
    if (available < LengthSize)
        return -1;
    const auto length = qFromBigEndian<quint32>(data);
    const quint32 size = length == NullLength ? 0 : length;
    return size <= quint32(available - LengthSize) ? int(size) : -1;
}

void deleteLater(QObject *object)
{
    object->deleteLater();
}

/// Disconnects all signals of a socket or server, then closes it.
template<typename Device>
void closeSilently(const std::shared_ptr<Device> &device)
{
    if (!device)
        return;
    device->disconnect();
    device->close();
}

} // namespace

TaskMessagingPrivate::TaskMessagingPrivate(TaskMessaging *channel) : q(channel) { }

TaskMessagingPrivate::~TaskMessagingPrivate()
{
    close();
}

void TaskMessagingPrivate::connectTo(const QString &socketPath)
{
    setSocket(new QLocalSocket);
    socket->connectToServer(socketPath, QIODevice::ReadWrite);
}

void TaskMessagingPrivate::listen(int socketDescriptor)
{
    if (!isListeningLocalSocket(socketDescriptor)) { // QLocalServer would close any descriptor, even standard input
        qWarning() << "Not a listening local socket:" << socketDescriptor;
        return;
    }
    server.reset(new QLocalServer, &deleteLater);
    QObject::connect(server.get(), &QLocalServer::newConnection, server.get(), [this] { onNewConnection(); });
    server->listen(qintptr(socketDescriptor));
    // The server stops silently if it cannot accept a client, for example without a free file descriptor.
    const auto notifiers = server->findChildren<QSocketNotifier *>();
    for (const auto *notifier : notifiers)
        QObject::connect(notifier, &QObject::destroyed, server.get(),
                         [this] { qWarning() << "TaskMessaging has stopped listening:" << server->errorString(); });
}

bool TaskMessagingPrivate::isListeningLocalSocket(int descriptor)
{
    return socketOption(descriptor, SO_ACCEPTCONN) == 1 && socketOption(descriptor, SO_DOMAIN) == AF_UNIX
        && socketOption(descriptor, SO_TYPE) == SOCK_STREAM;
}

TaskMessaging::State TaskMessagingPrivate::state() const
{
    switch (socket ? socket->state() : QLocalSocket::UnconnectedState) {
    case QLocalSocket::ConnectingState:
        return TaskMessaging::Connecting;
    case QLocalSocket::ConnectedState:
        return TaskMessaging::Connected;
    case QLocalSocket::ClosingState:
        return TaskMessaging::Closing;
    case QLocalSocket::UnconnectedState:
        break;
    }
    return TaskMessaging::Unconnected;
}

bool TaskMessagingPrivate::sendMessage(const QJsonObject &message)
{
    if (state() != TaskMessaging::Connected) {
        // Not Q_FUNC_INFO: its text depends on the compiler.
        qWarning() << "bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected";
        return false;
    }
    // One write for each frame: a receiver closes the connection if the length arrives without the payload.
    const QByteArray text = QJsonDocument(message).toJson(QJsonDocument::Compact);
    QByteArray frame(LengthSize + text.size(), Qt::Uninitialized);
    qToBigEndian(quint32(text.size()), frame.data());
    std::copy(text.cbegin(), text.cend(), frame.begin() + LengthSize);
    Trace trace;
    if (isTracing())
        trace = Trace::begin("sent message", name(), [&text] { return Trace::Size{text.size(), 0}; });
    socket->write(frame.constData(), frame.size());
    if (trace.isOn())
        endWhenWritten(trace);
    return true;
}

void TaskMessagingPrivate::endWhenWritten(const Trace &trace)
{
    const auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = QObject::connect(socket.get(), &QLocalSocket::bytesWritten, socket.get(),
                                   [connection, trace, unwritten = socket->bytesToWrite()](qint64 written) mutable {
                                       unwritten -= written;
                                       if (unwritten > 0)
                                           return;
                                       trace.end("written");
                                       QObject::disconnect(*connection);
                                   });
}

QString TaskMessagingPrivate::name() const
{
    return server ? server->fullServerName() : socket->fullServerName();
}

bool TaskMessagingPrivate::isAllRead() const
{
    if (state() != TaskMessaging::Connected)
        return true;
    int unreadBytes = 0; // in the socket
    const bool isKnown = ::ioctl(int(socket->socketDescriptor()), SIOCOUTQ, &unreadBytes) == 0;
    return socket->bytesToWrite() == 0 && (!isKnown || unreadBytes == 0);
}

void TaskMessagingPrivate::close()
{
    closeSilently(socket);
    if (!server)
        return;
    const auto notifiers = server->findChildren<QSocketNotifier *>();
    for (auto *notifier : notifiers) // their end is logged otherwise
        notifier->disconnect();
    closeSilently(server);
}

void TaskMessagingPrivate::setSocket(QLocalSocket *newSocket)
{
    closeSilently(socket);
    socket.reset(newSocket, &deleteLater);
    unread.clear();
    unread.reserve(MaxUnsplitFrame); // resize() and remove() keep the capacity
    position = 0;
    QObject::connect(newSocket, &QLocalSocket::readyRead, newSocket, [this] { readMessages(); });
    QObject::connect(newSocket, &QLocalSocket::stateChanged, newSocket, [this] {
        const auto source = socket;
        resumeAccepting();
        Q_EMIT q->stateChanged(state());
    });
    QObject::connect(newSocket, &QLocalSocket::errorOccurred, newSocket, [this, newSocket] {
        if (!isFinishing)
            qWarning() << "Socket error" << newSocket->errorString();
    });
}

void TaskMessagingPrivate::resumeAccepting()
{
    if (!server || state() == TaskMessaging::Connected)
        return;
    // The server disables its notifier while more than 30 clients wait, and does not enable it again.
    const auto notifiers = server->findChildren<QSocketNotifier *>(QString(), Qt::FindDirectChildrenOnly);
    for (auto *notifier : notifiers)
        notifier->setEnabled(true);
}

void TaskMessagingPrivate::onNewConnection()
{
    const QPointer<TaskMessaging> channel(q);
    const auto listener = server;
    drainIfHungUp();
    if (!channel || isFinishing)
        return;
    if (state() == TaskMessaging::Connected) {
        qWarning() << "TaskMessaging can handle only one connection at a time";
        return;
    }
    // The first clients in the queue may have disconnected. Continue with the next client then.
    do {
        QLocalSocket *const client = listener->nextPendingConnection();
        if (!client)
            return;
        client->setParent(nullptr);
        setSocket(client);
        if (const auto notify = clientAccepted) // a copy, because a receiver may delete the channel
            notify();
        if (channel && socket->bytesAvailable() > 0) // sent while the client waited
            readMessages();
        if (channel)
            drainIfHungUp();
    } while (channel && !isFinishing && state() == TaskMessaging::Unconnected);
}

void TaskMessagingPrivate::drainIfHungUp()
{
    const auto source = socket; // a receiver may replace it
    while (source && isHungUp(*source) && source->waitForReadyRead(0)) { } // emits its last messages
}

void TaskMessagingPrivate::readMessages()
{
    // A receiver may delete the channel, or run an event loop in which another client replaces the socket.
    const QPointer<TaskMessaging> channel(q);
    const auto source = socket;
    while (channel && socket == source) {
        const int size = payloadSize(unread.constData() + position, unread.size() - position);
        if (size < 0) {
            if (source->bytesAvailable() > 0) {
                unread.remove(0, position);
                position = 0;
                const int left = unread.size();
                unread.resize(left + int(source->bytesAvailable()));
                unread.truncate(left + int(source->read(unread.data() + left, unread.size() - left)));
                continue;
            }
            if (position < unread.size()) {
                qWarning() << "Insufficient data in the socket";
                unread.clear(); // an outer call, whose receiver runs an event loop, must not warn again
                position = 0;
                source->close();
            }
            return;
        }
        const auto text = QByteArray::fromRawData(unread.constData() + position + LengthSize, size);
        position += LengthSize + size;
        Trace trace;
        if (isTracing())
            trace = Trace::begin("received message", name(), [size] { return Trace::Size{size, 0}; });
        Q_EMIT q->messageReceived(QJsonDocument::fromJson(text).object());
        trace.end("delivered");
    }
}

TaskMessaging::TaskMessaging(const QString &socketPath, QObject *parent)
    : QObject(parent), d(std::make_unique<TaskMessagingPrivate>(this))
{
    d->connectTo(socketPath);
}

TaskMessaging::TaskMessaging(int socketDescriptor, QObject *parent)
    : QObject(parent), d(std::make_unique<TaskMessagingPrivate>(this))
{
    d->listen(socketDescriptor);
}

TaskMessaging::~TaskMessaging() = default;

TaskMessaging::State TaskMessaging::state() const
{
    return d->state();
}

bool TaskMessaging::sendMessage(const QJsonObject &message)
{
    return d->sendMessage(message);
}

} // namespace Corvane
