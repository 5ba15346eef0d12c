// SPDX-License-Identifier: BSD-3-Clause
// Writes a byte stream to a channel. Each line of the input extends the stream, cuts it, or describes another event:
//   f TEXT   a frame with this payload
//   l N      a length prefix, of any value
//   b TEXT   bytes
//   c N      a cut, N bytes before the end of the stream
//   s TEXT   the channel sends this JSON after it has read the whole stream
//   r N      the channel sends that JSON N times
//   e N      a slot sends back the first N messages
//   d N      a slot deletes the channel at the Nth message
//   t        the channel is the task's end, not the application's
// The cuts divide the stream into pieces. A plain socket writes a piece when the channel has read the piece before. The
// emitted messages and the end of the connection must agree with the model of the frames. Sent messages must arrive as
// complete frames. Only after the channel was deleted may some be missing; the connection must have ended then.
#include <Corvane/task_messaging.h>

#include <expect.h>
#include <target.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QtEndian>

#include <algorithm>
#include <linux/sockios.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Corvane;
using namespace Fuzz;

// NOLINTNEXTLINE(bugprone-reserved-identifier): the leak detector calls it by this name
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libQt5Core.so"; // Qt's JSON parser leaks the value of a repeated key
}

namespace {

constexpr int LengthSize = sizeof(quint32);
constexpr int MaxPiece = 16 * 1024; // arrives in one read
constexpr int MaxWhole = 32 * 1024; // a longer frame may arrive in two reads

struct Script
{
    QByteArray stream;
    QVector<int> cuts;
    QVector<QJsonObject> sent;
    int rounds = 1;
    int echoed = 0;
    int deletedIn = 0;
    bool isTask = false;
};

QByteArray frame(const QByteArray &payload)
{
    QByteArray length(LengthSize, '\0');
    qToBigEndian(quint32(payload.size()), length.data());
    return length + payload;
}

QByteArray frameOf(const QJsonObject &message)
{
    return frame(QJsonDocument(message).toJson(QJsonDocument::Compact));
}

Script parse(const QByteArray &input)
{
    Script script;
    const QList<QByteArray> lines = input.split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray rest = line.mid(2);
        switch (line.isEmpty() ? '\0' : line[0]) {
        case 'f':
            script.stream += frame(rest);
            break;
        case 'l': {
            QByteArray length(LengthSize, '\0');
            qToBigEndian(rest.toUInt(), length.data());
            script.stream += length;
            break;
        }
        case 'b':
            script.stream += rest;
            break;
        case 'c':
            script.cuts.append(script.stream.size() - int(rest.toUInt() % 4096));
            break;
        case 's':
            script.sent.append(QJsonDocument::fromJson(rest).object());
            break;
        case 'r':
            script.rounds = int(rest.toUInt() % 100);
            break;
        case 'e':
            script.echoed = int(rest.toUInt() % 10000);
            break;
        case 'd':
            script.deletedIn = int(rest.toUInt() % 100);
            break;
        case 't':
            script.isTask = true;
            break;
        default:
            break;
        }
    }
    return script;
}

QVector<QByteArray> pieces(const Script &script)
{
    QVector<int> cuts = script.cuts;
    cuts.append(script.stream.size());
    for (int cut = 0; cut < script.stream.size(); cut += MaxPiece)
        cuts.append(cut);
    std::sort(cuts.begin(), cuts.end());
    QVector<QByteArray> result;
    int start = 0;
    for (const int cut : qAsConst(cuts)) {
        if (cut > start) {
            result.append(script.stream.mid(start, cut - start));
            start = cut;
        }
    }
    return result;
}

/// Adds the expected messages of a piece. Returns false if the piece must end the connection.
bool readPiece(const QByteArray &piece, QStringList *messages)
{
    int at = 0;
    while (at < piece.size()) {
        if (piece.size() - at < 4)
            return false;
        const auto length = qFromBigEndian<quint32>(piece.constData() + at);
        at += 4;
        if (length == 0xFFFFFFFF) { // a null byte array
            messages->append("{}");
            continue;
        }
        if (quint32(piece.size() - at) < length)
            return false;
        messages->append(toText(QJsonDocument::fromJson(piece.mid(at, int(length))).object()));
        at += int(length);
    }
    return true;
}

sockaddr_un addressOf(const QByteArray &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

void check(int result, const char *what)
{
    if (result < 0)
        fail(QString("Cannot %1: %2").arg(what, qt_error_string(errno)));
}

/// A channel and the plain socket at its other end.
class Connection
{
public:
    explicit Connection(bool isTask)
    {
        static const QByteArray path = temporaryDirectory().toLocal8Bit() + "/socket";
        const sockaddr_un address = addressOf(path);
        const auto *const name = reinterpret_cast<const sockaddr *>(&address);
        ::unlink(path.constData());
        const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        check(::bind(listener, name, sizeof address), "bind");
        check(::listen(listener, 1), "listen");
        if (isTask) {
            channel = std::make_unique<TaskMessaging>(listener);
            socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            check(::connect(socket, name, sizeof address), "connect");
            while (channel->state() != TaskMessaging::Connected)
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        } else {
            channel = std::make_unique<TaskMessaging>(QString::fromLocal8Bit(path));
            socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            ::close(listener);
        }
        check(socket, "connect");
    }

    ~Connection()
    {
        channel.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        ::close(socket);
    }

    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    /// Writes a piece, and waits until the channel has read it. Returns false if the channel has closed.
    bool write(const QByteArray &piece) const
    {
        const ssize_t written = ::send(socket, piece.constData(), std::size_t(piece.size()), MSG_NOSIGNAL);
        if (written < 0 && errno == EPIPE)
            return false;
        if (written != piece.size())
            fail("A piece was not written at once");
        int unread = 0;
        while (::ioctl(socket, SIOCOUTQ, &unread) == 0 && unread > 0 && channel
               && channel->state() == TaskMessaging::Connected)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return true;
    }

    void send(const QJsonObject &message) { send(message, frameOf(message)); }

    void send(const QJsonObject &message, const QByteArray &frame)
    {
        expectEqual("Sending succeeds", channel->sendMessage(message), true);
        m_sent.append(frame);
    }

    /// Reads all sent messages, unless the channel closes before.
    void receiveAll()
    {
        while (receive(), !isClosed && (!m_sent.isEmpty() || channel->state() == TaskMessaging::Closing))
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }

    /// Reads the available bytes, which must end with a complete frame.
    void receive()
    {
        static char buffer[64 * 1024]; // on the stack, AddressSanitizer would poison the memory around it at each call
        ssize_t count = 0;
        while ((count = ::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
            m_received.append(buffer, int(count));
        isClosed = count == 0 || errno == ECONNRESET; // ECONNRESET if the channel has not read all bytes
        int at = 0;
        while (at < m_received.size()) {
            if (m_sent.isEmpty())
                fail(QString("There are %1 bytes that were not sent").arg(m_received.size() - at));
            const QByteArray expected = m_sent.first();
            const QByteArray received =
                QByteArray::fromRawData(m_received.constData() + at, std::min(m_received.size() - at, expected.size()));
            if (expected.size() - LengthSize > MaxWhole && expected != received && expected.startsWith(received))
                break;
            expectEqual("Frame", received, expected);
            m_sent.removeFirst();
            at += expected.size();
        }
        m_received.remove(0, at);
    }

    int unreceived() const { return m_sent.size(); }

    std::unique_ptr<TaskMessaging> channel;
    int socket = -1;
    bool isClosed = false;

private:
    QList<QByteArray> m_sent; ///< The frames that have not been received.
    QByteArray m_received; ///< The beginning of a long frame.
};

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    static int argumentCount = 0;
    static const auto *const application = new QCoreApplication(argumentCount, nullptr);
    Q_UNUSED(application)
    const Script script = parse(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    takeWarnings();

    Connection connection(script.isTask);
    QStringList messages;
    QObject::connect(connection.channel.get(), &TaskMessaging::messageReceived, connection.channel.get(),
                     [&](const QJsonObject &message) {
                         messages.append(toText(message));
                         if (messages.size() <= script.echoed)
                             connection.send(message);
                         if (messages.size() == script.deletedIn)
                             connection.channel.reset();
                     });

    QStringList expected;
    bool isOpen = true;
    bool isDeleted = false;
    const auto all = pieces(script);
    for (const QByteArray &piece : all) {
        isOpen = readPiece(piece, &expected);
        connection.write(piece);
        isDeleted = script.deletedIn > 0 && expected.size() >= script.deletedIn;
        if (isDeleted)
            expected = expected.mid(0, script.deletedIn);
        expectEqual("Messages", messages, expected);
        expectEqual("Deleted", connection.channel == nullptr, isDeleted);
        if (isDeleted) {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // deletes the socket
            connection.receive();
        } else {
            connection.receiveAll();
        }
        expectEqual("Closed", connection.isClosed, isDeleted || !isOpen);
        if (isDeleted || !isOpen)
            break;
        expectEqual("State", connection.channel->state(), TaskMessaging::Connected);
    }
    if (isDeleted) {
        expectWarnings({});
        return;
    }
    if (!isOpen) {
        expectEqual("Frames that have not arrived", connection.unreceived(), 0);
        expectEqual("State", connection.channel->state(), TaskMessaging::Unconnected);
        expectEqual("A piece after the end is written", connection.write("x"), false);
        expectEqual("Messages", messages, expected);
        expectWarnings({"Insufficient data in the socket"});
        return;
    }

    QVector<QByteArray> frames;
    for (const QJsonObject &message : script.sent)
        frames.append(frameOf(message));
    for (int round = 0; round < script.rounds; ++round) {
        for (int i = 0; i < frames.size(); ++i)
            connection.send(script.sent[i], frames[i]);
    }
    connection.receiveAll();
    expectEqual("Closed", connection.isClosed, false);
    expectWarnings({});

    ::shutdown(connection.socket, SHUT_RDWR);
    while (connection.channel->state() != TaskMessaging::Unconnected)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    expectEqual("Messages at the end", messages, expected);
    takeWarnings(); // about the closed connection
}
