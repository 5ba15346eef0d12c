// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"
#include "process.h"

#include <gdbus.h>

#include <DBus/names.h>

#include <gio/gunixfdlist.h>

using namespace Corvane;

namespace {

class GDBusCaller : public Caller
{
public:
    explicit GDBusCaller(GDBusConnection *bus) : m_bus(bus) { }

private:
    void send(const Intent &intent) override
    {
        GUnixFDList *const descriptors = g_unix_fd_list_new();
        GVariantBuilder hints;
        g_variant_builder_init(&hints, G_VARIANT_TYPE_VARDICT);
        const SharedFiles files(intent.params);
        if (!files.descriptors().isEmpty()) {
            GVariantBuilder handles;
            g_variant_builder_init(&handles, G_VARIANT_TYPE("ah"));
            for (const int descriptor : files.descriptors())
                g_variant_builder_add(&handles, "h", g_unix_fd_list_append(descriptors, descriptor, nullptr));
            const char *path = SharedFiles::Path;
            g_variant_builder_add(&hints, "{sv}", "readFds", g_variant_builder_end(&handles));
            g_variant_builder_add(&hints, "{sv}", "readFiles", g_variant_new_strv(&path, 1));
        }
        g_dbus_connection_call_with_unix_fd_list(
            m_bus, CORVANE_SERVICE_ROOT, Names::Intents.pathText, Names::Intents.interface, "InvokeIntent",
            g_variant_new("(sa{sv}@a{sv})", intent.name.toUtf8().constData(), &hints,
                          GDBusPeer::toVariant(intent.params)),
            G_VARIANT_TYPE("(a{sv})"), G_DBUS_CALL_FLAGS_NONE, -1, descriptors, nullptr, onFinished, this);
        g_object_unref(descriptors);
    }

    static void onFinished(GObject *bus, GAsyncResult *result, void *caller)
    {
        GError *error = nullptr;
        GVariant *const reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
        if (!reply)
            qFatal("%s", error->message);
        GVariant *const object = g_variant_get_child_value(reply, 0);
        static_cast<GDBusCaller *>(caller)->onReply(GDBusPeer::toObject(object));
        g_variant_unref(object);
        g_variant_unref(reply);
    }

    void processEvents() override { g_main_context_iteration(nullptr, true); }

    GDBusConnection *const m_bus;
};

void onMethodCall(GDBusConnection *, const char *, const char *, const char *, const char *, GVariant *arguments,
                  GDBusMethodInvocation *call, void *)
{
    GVariant *const object = g_variant_get_child_value(arguments, 1);
    const QJsonObject params = GDBusPeer::toObject(object);
    g_variant_unref(object);
    GVariantBuilder files;
    g_variant_builder_init(&files, G_VARIANT_TYPE_VARDICT);
    for (const char *key : {"readFiles", "writeFiles"})
        g_variant_builder_add(&files, "{sv}", key, g_variant_new_strv(nullptr, 0));
    g_dbus_method_invocation_return_value(call, g_variant_new("(@a{sv}a{sv})", GDBusPeer::toVariant(params), &files));
}

bool exportHandler(GDBusConnection *bus)
{
    const QByteArray xml = QByteArrayLiteral("<node><interface name='") + Names::IntentHandler.interface
        + QByteArrayLiteral("'><method name='HandleIntent'><arg type='s'/><arg type='a{sv}'/>"
                            "<arg type='a{sv}' direction='out'/><arg type='a{sv}' direction='out'/>"
                            "</method></interface></node>");
    GDBusNodeInfo *const node = g_dbus_node_info_new_for_xml(xml.constData(), nullptr);
    static const GDBusInterfaceVTable Methods = {onMethodCall, nullptr, nullptr, {}};
    const guint id = g_dbus_connection_register_object(bus, Names::IntentHandler.pathText, node->interfaces[0],
                                                       &Methods, nullptr, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    return id != 0;
}

void onNameAcquired(GDBusConnection *, const char *, void *)
{
    tellReady();
}

void onNameLost(GDBusConnection *, const char *name, void *)
{
    qFatal("The handler is not %s", name);
}

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    GDBusConnection *const bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus)
        qFatal("GDBus has no session bus");
    if (isCaller(argc, argv)) {
        GDBusCaller(bus).run();
        return 0;
    }
    if (!exportHandler(bus))
        qFatal("The handler is not on the bus");
    g_bus_own_name_on_connection(bus, handledIntent().constData(), G_BUS_NAME_OWNER_FLAGS_NONE, onNameAcquired,
                                 onNameLost, nullptr, nullptr);
    GMainLoop *const loop = g_main_loop_new(nullptr, false);
    g_main_loop_run(loop);
    return 0;
}
