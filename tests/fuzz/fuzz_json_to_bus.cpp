// SPDX-License-Identifier: BSD-3-Clause
// Converts an intent from JSON to D-Bus. The input is {"name": "X", "hints": {...}, "params": {...}}. A service on
// sd-bus receives the intent and replies with its params. The received messages must agree with the model. An intent
// over the limits of the bus must be refused.
#include <Corvane/intents_invoker.h>
#include <DBus/names.h>

#include <bus_peer.h>
#include <expect.h>
#include <json_input.h>
#include <target.h>
#include <wire_model.h>

#include <QtCore/QVector>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

using namespace Corvane;
using namespace Fuzz;

namespace {

struct Outcome
{
    QJsonObject reply;
    Error error;
};

QVector<Outcome> &outcomes()
{
    static QVector<Outcome> outcomes;
    return outcomes;
}

BusPeer &service()
{
    static BusPeer peer;
    return peer;
}

IntentsInvoker &invoker()
{
    static auto *const invoker = [] {
        startApplication();
        service().own(CORVANE_SERVICE_ROOT);
        auto *result = new IntentsInvoker;
        QObject::connect(result, &IntentsInvoker::replyReceived, [](const QJsonObject &reply, const Error &error) {
            outcomes().append({reply, error});
        });
        return result;
    }();
    return *invoker;
}

/// Sends a signal that the service receives after all earlier messages of the library.
void sendMarker()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.send(QDBusMessage::createTargetedSignal(Names::ServiceRoot, "/", "a.b", "Marker"));
}

QString memberOf(sd_bus_message *message)
{
    return QString::fromLatin1(sd_bus_message_get_member(message));
}

/// Waits for the outcome and for further messages. Usually both arrive with the service's messages.
Outcome onlyOutcome()
{
    settle(service());
    if (outcomes().isEmpty()) {
        runUntil([] { return !outcomes().isEmpty(); });
        settle(service());
    }
    QCoreApplication::processEvents(); // handles events that the outcome has posted
    expectEqual("Number of outcomes", outcomes().size(), 1);
    return outcomes().takeFirst();
}

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    const QString name = input.value("name").toString();
    QJsonObject hints = input.value("hints").toObject();
    const QJsonObject params = input.value("params").toObject();
    if (name == "OpenURI" || hasNoncharacters(input))
        return; // fuzz_file_export shares files, and sd-bus refuses noncharacters such as U+FFFF
    hints.remove("readFiles");
    hints.remove("writeFiles");
    const QStringList refusals = Fuzz::refusals(name, Place::Params) + Fuzz::refusals(hints, Place::Hints)
        + Fuzz::refusals(params, Place::Params);

    IntentsInvoker &intents = invoker();
    takeWarnings();
    intents.invoke(name, hints, params);
    expectEqual("Outcomes before the event loop runs", outcomes().size(), 0);
    sendMarker();

    const Message arrived = service().next();
    if (!refusals.isEmpty()) {
        expectEqual("Next message after a refused intent", memberOf(arrived.get()), "Marker");
        const Outcome outcome = onlyOutcome();
        expectEqual("Code", outcome.error.code(), Error::Failed);
        if (!refusals.contains(outcome.error.message()))
            fail("Refused for a wrong reason: " + outcome.error.message());
        expectEqual("Reply", outcome.reply, QJsonObject());
        expectWarnings({});
        return;
    }

    const Wire hintsWire = wireOf(hints, Place::Hints);
    const Wire paramsWire = wireOf(params, Place::Params);
    expectEqual("Message", memberOf(arrived.get()), "InvokeIntent");
    expectEqual("Signature", QByteArray(sd_bus_message_get_signature(arrived.get(), 1)), QByteArray("sa{sv}a{sv}"));
    expectEqual("Content", textOf(arrived.get()),
                QString("\"%1\", ").arg(QString::fromUtf8(name.toUtf8())) + hintsWire.text + ", " + paramsWire.text);
    expectEqual("Next message", memberOf(service().next().get()), "Marker");
    expectWarnings(hintsWire.warnings + paramsWire.warnings);

    sd_bus_message *made = nullptr;
    check(sd_bus_message_new_method_return(arrived.get(), &made), "make a reply");
    const Message reply(made);
    check(sd_bus_message_rewind(arrived.get(), 1), "rewind");
    check(sd_bus_message_skip(arrived.get(), "sa{sv}"), "skip");
    check(sd_bus_message_copy(reply.get(), arrived.get(), 1), "copy");
    service().send(reply.get());
    const Outcome outcome = onlyOutcome();
    expectEqual("Code", outcome.error.code(), Error::NoError);
    expectEqual("Message", outcome.error.message(), QString());
    expectEqual("Reply", toText(outcome.reply), toText(paramsWire.json));
    expectWarnings({});
}
