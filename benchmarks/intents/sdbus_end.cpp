// SPDX-License-Identifier: BSD-3-Clause
#include "caller.h"
#include "process.h"

#include <sdbus.h>

#include <DBus/names.h>

using namespace Corvane;

namespace {

/// Waits for the next message and handles it. Returns false if the bus has closed the connection.
bool processNext(sd_bus *bus)
{
    const int processed = sd_bus_process(bus, nullptr);
    return processed > 0 || (processed == 0 && sd_bus_wait(bus, UINT64_MAX) >= 0);
}

class SdBusCaller : public Caller
{
public:
    explicit SdBusCaller(sd_bus *bus) : m_bus(bus) { }

private:
    void send(const Intent &intent) override
    {
        sd_bus_message *call = nullptr;
        sd_bus_message_new_method_call(m_bus, &call, CORVANE_SERVICE_ROOT, Names::Intents.pathText,
                                       Names::Intents.interface, "InvokeIntent");
        sd_bus_message_append(call, "s", intent.name.toUtf8().constData());
        appendHints(call, SharedFiles(intent.params));
        SdBusPeer::append(call, intent.params);
        sd_bus_call_async(m_bus, nullptr, call, onMessage, this, 0);
        sd_bus_message_unref(call);
    }

    static void appendHints(sd_bus_message *call, const SharedFiles &files)
    {
        sd_bus_message_open_container(call, SD_BUS_TYPE_ARRAY, "{sv}");
        if (!files.descriptors().isEmpty()) {
            sd_bus_message_open_container(call, SD_BUS_TYPE_DICT_ENTRY, "sv");
            sd_bus_message_append(call, "s", "readFds");
            sd_bus_message_open_container(call, SD_BUS_TYPE_VARIANT, "ah");
            sd_bus_message_open_container(call, SD_BUS_TYPE_ARRAY, "h");
            for (const int descriptor : files.descriptors())
                sd_bus_message_append(call, "h", descriptor);
            sd_bus_message_close_container(call);
            sd_bus_message_close_container(call);
            sd_bus_message_close_container(call);
            sd_bus_message_append(call, "{sv}", "readFiles", "as", 1, SharedFiles::Path);
        }
        sd_bus_message_close_container(call);
    }

    static int onMessage(sd_bus_message *reply, void *caller, sd_bus_error *)
    {
        if (sd_bus_message_is_method_error(reply, nullptr) > 0)
            qFatal("%s", sd_bus_message_get_error(reply)->message);
        static_cast<SdBusCaller *>(caller)->onReply(SdBusPeer::readObject(reply));
        return 0;
    }

    void processEvents() override
    {
        if (!processNext(m_bus))
            qFatal("The bus is gone");
    }

    sd_bus *const m_bus;
};

int onHandleIntent(sd_bus_message *call, void *, sd_bus_error *)
{
    const char *intent = nullptr;
    sd_bus_message_read(call, "s", &intent);
    const QJsonObject params = SdBusPeer::readObject(call);
    sd_bus_message *reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    SdBusPeer::append(reply, params);
    sd_bus_message_append(reply, "a{sv}", 2, "readFiles", "as", 0, "writeFiles", "as", 0);
    sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return 1;
}

const sd_bus_vtable Interface[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("HandleIntent", "sa{sv}", "a{sv}a{sv}", onHandleIntent, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

int main(int argc, char **argv)
{
    dieWithParent();
    sd_bus *bus = nullptr;
    if (sd_bus_open_user(&bus) < 0)
        qFatal("sd-bus has no session bus");
    if (isCaller(argc, argv)) {
        SdBusCaller(bus).run();
        return 0;
    }
    if (sd_bus_add_object_vtable(bus, nullptr, Names::IntentHandler.pathText, Names::IntentHandler.interface, Interface,
                                 nullptr)
            < 0
        || sd_bus_request_name(bus, handledIntent().constData(), 0) < 0)
        qFatal("The handler is not on the bus");
    tellReady();
    while (processNext(bus)) { }
    return 0;
}
