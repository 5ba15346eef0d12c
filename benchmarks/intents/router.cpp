// SPDX-License-Identifier: BSD-3-Clause
// A minimal service: it forwards the parameters of an intent to the bus name that equals the name of the intent, and
// forwards the reply. It does not forward file descriptors.
#include "process.h"

#include <DBus/names.h>

#include <systemd/sd-bus.h>

using namespace Corvane;

namespace {

int onReply(sd_bus_message *reply, void *userData, sd_bus_error *)
{
    auto *const call = static_cast<sd_bus_message *>(userData);
    if (sd_bus_message_is_method_error(reply, nullptr) > 0) {
        sd_bus_reply_method_error(call, sd_bus_message_get_error(reply));
    } else {
        sd_bus_message *answer = nullptr;
        sd_bus_message_new_method_return(call, &answer);
        sd_bus_message_copy(answer, reply, false);
        sd_bus_send(nullptr, answer, nullptr);
        sd_bus_message_unref(answer);
    }
    sd_bus_message_unref(call);
    return 0;
}

int onInvokeIntent(sd_bus_message *call, void *, sd_bus_error *)
{
    const char *intent = nullptr;
    sd_bus_message_read(call, "s", &intent);
    sd_bus_message_skip(call, "a{sv}");
    sd_bus_message *forward = nullptr;
    sd_bus_message_new_method_call(sd_bus_message_get_bus(call), &forward, intent, Names::IntentHandler.pathText,
                                   Names::IntentHandler.interface, "HandleIntent");
    sd_bus_message_append(forward, "s", intent);
    sd_bus_message_copy(forward, call, false);
    const int sent =
        sd_bus_call_async(sd_bus_message_get_bus(call), nullptr, forward, onReply, sd_bus_message_ref(call), 0);
    sd_bus_message_unref(forward);
    return sent;
}

const sd_bus_vtable Interface[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("InvokeIntent", "sa{sv}a{sv}", "a{sv}", onInvokeIntent, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace

int main()
{
    dieWithParent();
    sd_bus *bus = nullptr;
    if (sd_bus_open_user(&bus) < 0
        || sd_bus_add_object_vtable(bus, nullptr, Names::Intents.pathText, Names::Intents.interface, Interface, nullptr)
            < 0
        || sd_bus_request_name(bus, CORVANE_SERVICE_ROOT, 0) < 0)
        qFatal("The router is not on the bus");
    tellReady();
    for (;;) {
        const int processed = sd_bus_process(bus, nullptr);
        if (processed < 0 || (processed == 0 && sd_bus_wait(bus, UINT64_MAX) < 0))
            return 0; // the bus has closed the connection
    }
}
