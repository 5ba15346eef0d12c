// SPDX-License-Identifier: BSD-3-Clause
// Measures the conversion of JSON to a bus message and back, without the bus. The library's check of the bus limits is
// included.
#include "baseline.h"
#include "payloads.h"

#include <measure.h>

#include <gdbus.h>
#include <libdbus.h>
#include <mirror.h>
#include <qtdbus.h>
#include <sdbus.h>

#include <DBus/message_meter.h>
#include <DBus/types.h>

#include <QtCore/QCoreApplication>

#include <memory>

namespace {

struct Payload
{
    QString name;
    QJsonObject object;
};

DBusMessage *newLibdbusMessage()
{
    return dbus_message_new_method_call("a.b", "/", "a.b", "Member");
}

struct Unref
{
    void operator()(DBusMessage *message) const { dbus_message_unref(message); }
    void operator()(GDBusMessage *message) const { g_object_unref(message); }
    void operator()(sd_bus *bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
    void operator()(void *memory) const { g_free(memory); }
};

using LibdbusMessage = std::unique_ptr<DBusMessage, Unref>;
using SdBus = std::unique_ptr<sd_bus, Unref>;
using SdBusMessage = std::unique_ptr<sd_bus_message, Unref>;
using GMessage = std::unique_ptr<GDBusMessage, Unref>;

LibdbusMessage libdbusMessage(const QJsonObject &object)
{
    LibdbusMessage message(newLibdbusMessage());
    DBusMessageIter iter;
    dbus_message_iter_init_append(message.get(), &iter);
    LibdbusPeer::append(&iter, object);
    return message;
}

SdBusMessage sdBusMessage(sd_bus *bus, const QJsonObject &object)
{
    sd_bus_message *message = nullptr;
    sd_bus_message_new_method_call(bus, &message, "a.b", "/", "a.b", "Member");
    SdBusPeer::append(message, object);
    sd_bus_message_seal(message, 1, 0);
    return SdBusMessage(message);
}

/// Returns the bytes of a message on the bus.
struct Blob
{
    std::unique_ptr<void, Unref> data;
    gsize size = 0;
};

Blob gdbusMessage(const QJsonObject &object)
{
    const GMessage message(g_dbus_message_new_method_call("a.b", "/", "a.b", "Member"));
    g_dbus_message_set_serial(message.get(), 1);
    GVariant *body = GDBusPeer::toVariant(object);
    g_dbus_message_set_body(message.get(), g_variant_new_tuple(&body, 1));
    Blob blob;
    blob.data.reset(g_dbus_message_to_blob(message.get(), &blob.size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    return blob;
}

/// Reads a copy, because reading consumes the argument.
QJsonObject readLibrary(QDBusArgument argument) // NOLINT(performance-unnecessary-value-param)
{
    QJsonObject object;
    argument >> object;
    return object;
}

QJsonObject readLibdbus(DBusMessage *message)
{
    DBusMessageIter iter;
    dbus_message_iter_init(message, &iter);
    return LibdbusPeer::readObject(&iter);
}

QJsonObject readSdBus(sd_bus_message *message)
{
    sd_bus_message_rewind(message, true);
    return SdBusPeer::readObject(message);
}

QJsonObject readGDBus(const Blob &blob)
{
    const GMessage message(g_dbus_message_new_from_blob(static_cast<guchar *>(blob.data.get()), blob.size,
                                                        G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    GVariant *const body = g_variant_get_child_value(g_dbus_message_get_body(message.get()), 0);
    const QJsonObject object = GDBusPeer::toObject(body);
    g_variant_unref(body);
    return object;
}

/// Checks that all variants have the same result.
void verify(const Payload &payload, const char *how, const QJsonObject &read)
{
    if (read != payload.object)
        qFatal("%s does not give back the payload \"%s\"", how, qPrintable(payload.name));
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Results results(QCoreApplication::arguments());
    Corvane::registerRecordTypes();
    QtDBusPeer::registerTypes();
    Mirror mirror;
    sd_bus *connection = nullptr;
    if (sd_bus_open_user(&connection) < 0)
        qFatal("sd-bus has no session bus");
    const SdBus bus(connection);

    // The large payloads are last: they fragment the heap for later ones.
    const QVector<Payload> payloads{
        {QStringLiteral("small: 5 members"), Payloads::small()},
        {QStringLiteral("depth 1"), Payloads::nested(1)},
        {QStringLiteral("depth 6"), Payloads::nested(6)},
        {QStringLiteral("deep: nested 15"), Payloads::nested(15)},
        {QStringLiteral("depth 20"), Payloads::nested(20)},
        {QStringLiteral("medium: 100 members, nested 3"), Payloads::medium()},
        {QStringLiteral("1,000 objects"), Payloads::objects(1000)},
        {QStringLiteral("wide: 10,000 members"), Payloads::wide(10000)},
        {QStringLiteral("100,000 numbers"), Payloads::numbers(100000)},
        {QStringLiteral("1 MB text"), Payloads::text(1000000)},
    };
    for (const Payload &payload : payloads) {
        const QJsonObject &object = payload.object;
        const auto library = [&object] {
            Corvane::Omissions omissions;
            const Corvane::BusObject body = Corvane::toBusObject(object, Corvane::Place::Params, &omissions);
            Corvane::MessageMeter meter;
            meter.add(body);
            QDBusArgument argument;
            argument << body;
        };
        const auto baseline = [&object] {
            QDBusArgument argument;
            Baseline::write(argument, object);
        };
        const auto qtDBus = [&object] {
            QDBusArgument argument;
            argument << QtDBusPeer::toMap(object);
        };
        measure(results, QStringLiteral("JSON to bus"), payload.name,
                {{QStringLiteral("corvane"), library},
                 {QStringLiteral("an argument a member"), baseline},
                 {QStringLiteral("QtDBus"), qtDBus},
                 {QStringLiteral("libdbus"), [&object] { libdbusMessage(object); }},
                 {QStringLiteral("sd-bus"), [&object, &bus] { sdBusMessage(bus.get(), object); }},
                 {QStringLiteral("GDBus"), [&object] { gdbusMessage(object); }}});
    }
    for (const Payload &payload : payloads) {
        const QJsonObject &object = payload.object;
        const QDBusArgument argument = mirror.reflect(QVariant::fromValue(object));
        const QDBusArgument fromQtDBus = mirror.reflect(QtDBusPeer::toMap(object));
        QDBusArgument plain;
        Baseline::write(plain, object);
        const QDBusArgument fromBaseline = mirror.reflect(QVariant::fromValue(plain));
        const LibdbusMessage inLibdbus = libdbusMessage(object);
        const SdBusMessage inSdBus = sdBusMessage(bus.get(), object);
        const Blob inGDBus = gdbusMessage(object);
        verify(payload, "corvane", readLibrary(argument));
        verify(payload, "corvane from QtDBus", readLibrary(fromQtDBus));
        verify(payload, "corvane from an argument a member", readLibrary(fromBaseline));
        verify(payload, "QtDBus", QtDBusPeer::readObject(argument));
        verify(payload, "libdbus", readLibdbus(inLibdbus.get()));
        verify(payload, "sd-bus", readSdBus(inSdBus.get()));
        verify(payload, "GDBus", readGDBus(inGDBus));
        measure(results, QStringLiteral("bus to JSON"), payload.name,
                {{QStringLiteral("corvane"), [&argument] { readLibrary(argument); }},
                 {QStringLiteral("QtDBus"), [&argument] { QtDBusPeer::readObject(argument); }},
                 {QStringLiteral("libdbus"), [&inLibdbus] { readLibdbus(inLibdbus.get()); }},
                 {QStringLiteral("sd-bus"), [&inSdBus] { readSdBus(inSdBus.get()); }},
                 {QStringLiteral("GDBus"), [&inGDBus] { readGDBus(inGDBus); }}});
    }
    results.write();
    return 0;
}
