// SPDX-License-Identifier: BSD-3-Clause
#include "bus_peer.h"

#include "expect.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>

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
        return value.b ? QStringLiteral("true") : QStringLiteral("false");
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
        return QStringLiteral("descriptor");
    default:
        return QLatin1Char('"') + QString::fromUtf8(value.s) + QLatin1Char('"');
    }
}

QString partText(sd_bus_message *message, char type, const char *contents)
{
    if (!contents)
        return basicText(message, type);

    const QString signature = QString::fromLatin1(contents);
    check(sd_bus_message_enter_container(message, type, contents), "enter a container");
    QStringList parts;
    char partType = 0;
    const char *partContents = nullptr;
    while (check(sd_bus_message_peek_type(message, &partType, &partContents), "look at a value") > 0)
        parts.append(partText(message, partType, partContents));
    check(sd_bus_message_exit_container(message), "leave a container");

    const QString all = parts.join(QLatin1String(", "));
    switch (type) {
    case 'v':
        return QLatin1Char('<') + signature + QLatin1Char(' ') + all + QLatin1Char('>');
    case 'e':
        return parts.join(QLatin1String(": "));
    case 'r':
        return QLatin1Char('(') + all + QLatin1Char(')');
    default:
        break;
    }
    if (!signature.startsWith(QLatin1Char('{')))
        return QLatin1Char('[') + all + QLatin1Char(']');
    parts.sort();
    return QLatin1Char('{') + parts.join(QLatin1String(", ")) + QLatin1Char('}');
}

} // namespace

int check(int result, const char *what)
{
    if (result < 0)
        fail(QStringLiteral("The peer cannot %1: %2")
                 .arg(QLatin1String(what), QString::fromUtf8(std::strerror(-result))));
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
        const int waited = sd_bus_wait(bus, Patience);
        if (waited == 0)
            fail(QStringLiteral("Nothing arrived at the peer"));
        if (waited != -EINTR) // libFuzzer looks at the time by a signal
            check(waited, "wait for the bus");
    }
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
    QStringList parts;
    char type = 0;
    const char *contents = nullptr;
    while (check(sd_bus_message_peek_type(message, &type, &contents), "look at a value") > 0)
        parts.append(partText(message, type, contents));
    return parts.join(QLatin1String(", "));
}

void startApplication()
{
    static int argumentCount = 0;
    static auto *const application = new QCoreApplication(argumentCount, nullptr);
    Q_UNUSED(application)
    if (!QDBusConnection::sessionBus().isConnected())
        fail(QStringLiteral("There is no session bus, or the library has lost it"));
}

void makeRoundTrip()
{
    const QDBusPendingCallWatcher call(QDBusConnection::sessionBus().asyncCall(
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                                       QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId"))));
    bool isFinished = false; // in the order of the events, as the function of that name is not
    QObject::connect(&call, &QDBusPendingCallWatcher::finished, &call, [&isFinished] { isFinished = true; });
    runUntil([&isFinished] { return isFinished; });
}

} // namespace Fuzz
