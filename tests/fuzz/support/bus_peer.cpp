// SPDX-License-Identifier: BSD-3-Clause
#include "bus_peer.h"

#include "expect.h"
#include "wire_model.h"

#include <QtDBus/QDBusConnection>

#include <cerrno>
#include <cstring>

namespace Fuzz {

namespace {

constexpr std::uint64_t Patience = 10'000'000; // microseconds

QString basicText(sd_bus_message *message, char type)
{
    union {
        std::uint8_t y;
        int b;
        std::int16_t n;
        std::uint16_t q;
        std::int32_t i;
        std::uint32_t u;
        std::int64_t x;
        std::uint64_t t;
        double d;
        const char *s;
    } value = {};
    check(sd_bus_message_read_basic(message, type, &value), "read a value");
    switch (type) {
    case 'y':
        return QString::number(value.y);
    case 'b':
        return value.b ? "true" : "false";
    case 'n':
        return QString::number(value.n);
    case 'q':
        return QString::number(value.q);
    case 'i':
        return QString::number(value.i);
    case 'u':
        return QString::number(value.u);
    case 'x':
        return QString::number(value.x);
    case 't':
        return QString::number(value.t);
    case 'd':
        return QString::number(value.d, 'g', 17);
    case 'h':
        return "descriptor";
    default:
        return '"' + QString::fromUtf8(value.s) + '"';
    }
}

void addValues(QString *text, sd_bus_message *message, bool isDictionary = false, const char *separator = ", ");

void addValue(QString *text, sd_bus_message *message, char type, const char *contents)
{
    if (!contents) {
        *text += basicText(message, type);
        return;
    }
    const QString signature = QString::fromLatin1(contents); // entering the container changes contents
    check(sd_bus_message_enter_container(message, type, contents), "enter a container");
    if (type == 'v') {
        *text += '<' + signature + ' ';
        addValues(text, message);
        *text += '>';
    } else if (type == 'e') {
        addValues(text, message, false, ": ");
    } else if (type == 'r') {
        *text += '(';
        addValues(text, message);
        *text += ')';
    } else {
        const bool isDictionary = signature.startsWith('{');
        *text += isDictionary ? '{' : '[';
        addValues(text, message, isDictionary);
        *text += isDictionary ? '}' : ']';
    }
    check(sd_bus_message_exit_container(message), "leave a container");
}

void addValues(QString *text, sd_bus_message *message, bool isDictionary, const char *separator)
{
    QVector<int> starts;
    bool isFirst = true;
    char type = 0;
    const char *contents = nullptr;
    while (check(sd_bus_message_peek_type(message, &type, &contents), "look at a value") > 0) {
        if (!isFirst)
            *text += separator;
        isFirst = false;
        if (isDictionary)
            starts.append(text->size());
        addValue(text, message, type, contents);
    }
    if (isDictionary)
        sortEntries(text, starts);
}

/// Receives the signal of settle(), which is sent after all messages to wait for.
class Marker : public QObject
{
    Q_OBJECT
public:
    int received = 0;

public Q_SLOTS:
    void onMarker() { ++received; }
};

Marker &marker()
{
    static auto *const marker = [] {
        auto *result = new Marker;
        QDBusConnection::sessionBus().connect(QString(), "/", "a.b", "Marker", result, SLOT(onMarker()));
        return result;
    }();
    return *marker;
}

} // namespace

int check(int result, const char *what)
{
    if (result < 0)
        fail(QString("The peer cannot %1: %2").arg(what, QString::fromUtf8(std::strerror(-result))));
    return result;
}

BusPeer::BusPeer()
{
    check(sd_bus_open_user(&bus), "connect to the session bus");
}

BusPeer::~BusPeer()
{
    sd_bus_flush_close_unref(bus);
}

void BusPeer::own(const char *name)
{
    check(sd_bus_request_name(bus, name, 0), "own the name");
}

Message BusPeer::next()
{
    for (;;) {
        sd_bus_message *message = nullptr;
        const int processed = check(sd_bus_process(bus, &message), "read from the bus");
        Message result(message);
        if (result) {
            const char *sender = sd_bus_message_get_sender(message);
            if (!sender || std::strcmp(sender, "org.freedesktop.DBus") != 0)
                return result;
        }
        if (processed > 0)
            continue;
        wait();
    }
}

void BusPeer::wait()
{
    const int waited = sd_bus_wait(bus, Patience);
    if (waited == 0)
        fail("Nothing arrived at the peer");
    if (waited != -EINTR) // a timer signal of libFuzzer
        check(waited, "wait for the bus");
}

Message BusPeer::newSignal(const QString &path, const char *interface, const char *member)
{
    sd_bus_message *message = nullptr;
    check(sd_bus_message_new_signal(bus, &message, qUtf8Printable(path), interface, member), "make a signal");
    return Message(message);
}

void BusPeer::send(sd_bus_message *message)
{
    check(sd_bus_send(bus, message, nullptr), "send");
    check(sd_bus_flush(bus), "flush");
}

QString textOf(sd_bus_message *message)
{
    QString text;
    addValues(&text, message);
    return text;
}

void startApplication()
{
    static int argumentCount = 0;
    static auto *const application = new QCoreApplication(argumentCount, nullptr);
    Q_UNUSED(application)
    if (!QDBusConnection::sessionBus().isConnected())
        fail("There is no session bus, or the library has lost it");
}

void settle(BusPeer &peer)
{
    const int expected = marker().received + 1;
    const Message message = peer.newSignal("/", "a.b", "Marker");
    peer.send(message.get());
    runUntil([expected] { return marker().received == expected; });
}

} // namespace Fuzz

#include "bus_peer.moc"
