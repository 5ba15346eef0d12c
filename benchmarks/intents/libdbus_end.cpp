// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"
#include "process.h"

#include <libdbus.h>

#include <DBus/names.h>

using namespace Corvane;

namespace {

void appendText(DBusMessageIter *iter, const char *text)
{
    dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &text);
}

/// A dictionary entry whose value is an array.
template<typename AppendElements>
void appendEntry(DBusMessageIter *dictionary, const char *key, const char *element, AppendElements appendElements)
{
    const QByteArray signature = QByteArrayLiteral("a") + element;
    DBusMessageIter entry;
    DBusMessageIter variant;
    DBusMessageIter array;
    dbus_message_iter_open_container(dictionary, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    appendText(&entry, key);
    dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature.constData(), &variant);
    dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, element, &array);
    appendElements(&array);
    dbus_message_iter_close_container(&variant, &array);
    dbus_message_iter_close_container(&entry, &variant);
    dbus_message_iter_close_container(dictionary, &entry);
}

class LibdbusCaller : public Caller
{
public:
    explicit LibdbusCaller(DBusConnection *bus) : m_bus(bus) { }

private:
    void send(const Intent &intent) override
    {
        DBusMessage *const call = dbus_message_new_method_call(CORVANE_SERVICE_ROOT, Names::Intents.pathText,
                                                               Names::Intents.interface, "InvokeIntent");
        DBusMessageIter iter;
        dbus_message_iter_init_append(call, &iter);
        appendText(&iter, intent.name.toUtf8().constData());
        appendHints(&iter, SharedFiles(intent.params));
        LibdbusPeer::append(&iter, intent.params);
        DBusPendingCall *pending = nullptr;
        if (!dbus_connection_send_with_reply(m_bus, call, &pending, DBUS_TIMEOUT_USE_DEFAULT) || !pending)
            qFatal("The bus is gone");
        dbus_pending_call_set_notify(pending, onFinished, this, nullptr);
        dbus_pending_call_unref(pending);
        dbus_message_unref(call);
    }

    static void appendHints(DBusMessageIter *iter, const SharedFiles &files)
    {
        DBusMessageIter hints;
        dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &hints);
        if (!files.descriptors().isEmpty()) {
            appendEntry(&hints, "readFds", "h", [&files](DBusMessageIter *array) {
                for (const int descriptor : files.descriptors())
                    dbus_message_iter_append_basic(array, DBUS_TYPE_UNIX_FD, &descriptor);
            });
            appendEntry(&hints, "readFiles", "s", [](DBusMessageIter *array) { appendText(array, SharedFiles::Path); });
        }
        dbus_message_iter_close_container(iter, &hints);
    }

    static void onFinished(DBusPendingCall *pending, void *caller)
    {
        DBusMessage *const reply = dbus_pending_call_steal_reply(pending);
        if (dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_ERROR)
            qFatal("%s", dbus_message_get_error_name(reply));
        DBusMessageIter iter;
        dbus_message_iter_init(reply, &iter);
        static_cast<LibdbusCaller *>(caller)->onReply(LibdbusPeer::readObject(&iter));
        dbus_message_unref(reply);
    }

    void processEvents() override { dbus_connection_read_write_dispatch(m_bus, -1); }

    DBusConnection *const m_bus;
};

DBusHandlerResult onMessage(DBusConnection *bus, DBusMessage *call, void *)
{
    if (!dbus_message_is_method_call(call, Names::IntentHandler.interface, "HandleIntent"))
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    DBusMessageIter in;
    dbus_message_iter_init(call, &in);
    dbus_message_iter_next(&in);
    const QJsonObject params = LibdbusPeer::readObject(&in);
    DBusMessage *const reply = dbus_message_new_method_return(call);
    DBusMessageIter out;
    dbus_message_iter_init_append(reply, &out);
    LibdbusPeer::append(&out, params);
    DBusMessageIter files;
    dbus_message_iter_open_container(&out, DBUS_TYPE_ARRAY, "{sv}", &files);
    for (const char *key : {"readFiles", "writeFiles"})
        appendEntry(&files, key, "s", [](DBusMessageIter *) {});
    dbus_message_iter_close_container(&out, &files);
    dbus_connection_send(bus, reply, nullptr);
    dbus_message_unref(reply);
    return DBUS_HANDLER_RESULT_HANDLED;
}

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    DBusConnection *const bus = dbus_bus_get(DBUS_BUS_SESSION, nullptr);
    if (!bus)
        qFatal("libdbus has no session bus");
    if (isCaller(argc, argv)) {
        LibdbusCaller(bus).run();
        return 0;
    }
    DBusObjectPathVTable handler = {};
    handler.message_function = onMessage;
    if (!dbus_connection_register_object_path(bus, Names::IntentHandler.pathText, &handler, nullptr)
        || dbus_bus_request_name(bus, handledIntent().constData(), 0, nullptr) < 0)
        qFatal("The handler is not on the bus");
    tellReady();
    while (dbus_connection_read_write_dispatch(bus, -1)) { }
    return 0;
}
