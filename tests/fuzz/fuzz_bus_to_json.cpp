// SPDX-License-Identifier: BSD-3-Clause
// Converts the params of an intent from D-Bus to JSON and back. The input is the entries of a dictionary: each is a
// text, its key, and a variant (see BusValueReader). A peer on sd-bus sends the params to a handler, which replies with
// the params that it received. The received params and the reply must agree with the models.
#include <Corvane/runtime_dispatcher.h>
#include <DBus/names.h>

#include <bus_peer.h>
#include <bus_value.h>
#include <expect.h>
#include <target.h>
#include <wire_model.h>

#include <QtCore/QSocketNotifier>

using namespace Corvane;
using namespace Fuzz;

namespace {

/// The params that the handler received, and whether it was called.
struct Handled
{
    QJsonObject params;
    bool isCalled = false;
};

Handled &handled()
{
    static Handled handled;
    return handled;
}

BusPeer &peer()
{
    static BusPeer peer;
    return peer;
}

void startHandler()
{
    static const bool started = [] {
        startApplication();
        qputenv("HALVIR_APP_INSTANCE_ID", "demo.instance1");
        auto *dispatcher = RuntimeDispatcher::instance();
        dispatcher->registerIntent("Echo", [](const QJsonObject &params, const auto &reply) {
            handled() = {params, true};
            reply(params);
        });
        return !dispatcher->startService();
    }();
    if (!started)
        fail("The handler cannot be started");
}

void checkEcho(const BusValue &params)
{
    QStringList warnings;
    const QJsonObject expected = jsonOf(params, &warnings).toObject();
    const QString text = toText(expected);
    const QVector<uint> characters = text.toUcs4();
    if (std::any_of(characters.begin(), characters.end(), [](uint c) { return QChar::isNonCharacter(c); }))
        return; // sd-bus refuses a reply with noncharacters, which an array of bytes may contain
    takeWarnings();
    handled() = {};
    sd_bus_message *made = nullptr;
    check(sd_bus_message_new_method_call(peer().bus, &made, "demo.instance1",
                                         qUtf8Printable(QString(Names::IntentHandler.path())),
                                         Names::IntentHandler.interface, "HandleIntent"),
          "make a call");
    const Message call(made);
    check(sd_bus_message_append(call.get(), "s", "Echo"), "write the name");
    append(call.get(), params);
    Message answer;
    const sd_bus_message_handler_t onAnswer = [](sd_bus_message *message, void *answer, sd_bus_error *) {
        static_cast<Message *>(answer)->reset(sd_bus_message_ref(message));
        return 1;
    };
    check(sd_bus_call_async(peer().bus, nullptr, call.get(), onAnswer, &answer, 0), "call");
    check(sd_bus_flush(peer().bus), "flush");

    static const QSocketNotifier wakesEventLoop(sd_bus_get_fd(peer().bus), QSocketNotifier::Read);
    const auto readsAnswer = [&answer] {
        while (!answer && check(sd_bus_process(peer().bus, nullptr), "read from the bus") > 0) { }
        return answer != nullptr;
    };
    runUntil([&] { return handled().isCalled || readsAnswer(); });
    while (!readsAnswer())
        peer().wait();

    expectEqual("Params", toText(handled().params), text);

    const Wire echo = wireOf(expected, Place::Params);
    const QStringList refusals = Fuzz::refusals(expected, Place::Params);
    if (refusals.isEmpty()) {
        expectEqual("Reply", Fuzz::textOf(answer.get()),
                    echo.text + R"(, {"readFiles": <as []>, "writeFiles": <as []>})");
        expectWarnings(warnings + echo.warnings);
    } else {
        const sd_bus_error *error = sd_bus_message_get_error(answer.get());
        if (!error)
            fail("A reply that nests too deep was sent");
        expectEqual("Error", QByteArray(error->name), QByteArray("org.freedesktop.DBus.Error.Failed"));
        const QString reason = QString::fromUtf8(error->message);
        if (!refusals.contains(reason))
            fail("Refused for a wrong reason: " + reason);
        warnings.append(QString("Failed to reply to an intent: \"%1\"").arg(reason));
        expectWarnings(warnings);
    }
}

/// Reads the input as the entries of a dictionary.
BusValue paramsOf(BusValueReader &reader)
{
    BusValue params;
    params.signature = "a{sv}";
    while (!reader.atEnd())
        params.parts.push_back(reader.value("{sv}"));
    return params;
}

/// Creates all singletons, and returns the descriptors that are open afterwards.
QVector<OpenDescriptor> warmUp()
{
    startHandler();
    const std::uint8_t oneDescriptor[] = {'a', ';', 'h'};
    BusValueReader reader(oneDescriptor, sizeof oneDescriptor);
    checkEcho(paramsOf(reader));
    settle(peer());
    return openDescriptors();
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    BusValueReader reader(data, size);
    const BusValue params = paramsOf(reader);
    if (reader.descriptors() > CORVANE_MAX_DESCRIPTORS)
        return; // the bus would refuse the message

    static const QVector<OpenDescriptor> before = warmUp();
    checkEcho(params);
    if (openDescriptors() == before)
        return;
    settle(peer()); // QtDBus closes received descriptors in its own thread
    expectEqual("Open descriptors", openDescriptors(), before);
}
