// SPDX-License-Identifier: BSD-3-Clause
// An intent, {"name": "X", "hints": {...}, "params": {...}}, is sent to a service on sd-bus, which sends the params
// back. What arrives at either end must be what the model says; what the bus would not let pass must be refused.
#include <Corvane/intents_invoker.h>
#include <DBus/names.h>

#include <bus_peer.h>
#include <expect.h>
#include <json_input.h>
#include <wire_model.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

#include <algorithm>
#include <optional>

using namespace Corvane;
using namespace Fuzz;

namespace {

struct Outcome
{
    QJsonObject reply;
    Error error;
};

std::optional<Outcome> &outcome()
{
    static std::optional<Outcome> outcome;
    return outcome;
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
            outcome() = Outcome{reply, error};
        });
        return result;
    }();
    return *invoker;
}

/// What the library sends before this has arrived before it.
void sendMarker()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.send(QDBusMessage::createTargetedSignal(Names::ServiceRoot, QStringLiteral("/"), QStringLiteral("a.b"),
                                                QStringLiteral("Marker")));
}

bool hasNoncharacters(const QString &text)
{
    const QVector<uint> characters = text.toUcs4();
    return std::any_of(characters.begin(), characters.end(), [](uint c) { return QChar::isNonCharacter(c); });
}

QString memberOf(sd_bus_message *message)
{
    return QString::fromLatin1(sd_bus_message_get_member(message));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject input = jsonInput(data, size);
    const QString name = input.value(QLatin1String("name")).toString();
    QJsonObject hints = input.value(QLatin1String("hints")).toObject();
    const QJsonObject params = input.value(QLatin1String("params")).toObject();
    if (name == QLatin1String("OpenURI") || hasNoncharacters(toText(input)))
        return 0; // files are another target's, and sd-bus does not read U+FFFF and its like
    hints.remove(QStringLiteral("readFiles"));
    hints.remove(QStringLiteral("writeFiles"));
    const bool isMeasured = isAllowed(name) && isAllowed(hints) && isAllowed(params);
    const Wire hintsWire = wireOf(hints, Place::Hints);
    const Wire paramsWire = wireOf(params, Place::Params);

    IntentsInvoker &intents = invoker();
    takeWarnings();
    outcome().reset();
    intents.invoke(name, hints, params);
    if (outcome())
        fail(QStringLiteral("The outcome came within the call"));
    sendMarker();

    const Message arrived = service().next();
    if (!isMeasured || !hintsWire.isSendable || !paramsWire.isSendable) {
        expectEqual("What arrives of an intent that is refused", memberOf(arrived.get()), QStringLiteral("Marker"));
        runUntil([] { return outcome().has_value(); });
        expectEqual("Code", outcome()->error.code(), Error::Failed);
        expectEqual("Reply", outcome()->reply, QJsonObject());
        expectWarnings(isMeasured ? hintsWire.warnings : QStringList());
        return 0;
    }

    expectEqual("What arrives", memberOf(arrived.get()), QStringLiteral("InvokeIntent"));
    expectEqual("Signature", QByteArray(sd_bus_message_get_signature(arrived.get(), 1)), QByteArray("sa{sv}a{sv}"));
    expectEqual("Content", textOf(arrived.get()),
                QStringLiteral("\"%1\", ").arg(QString::fromUtf8(name.toUtf8())) + hintsWire.text + QStringLiteral(", ")
                    + paramsWire.text);
    expectEqual("What follows", memberOf(service().next().get()), QStringLiteral("Marker"));
    expectWarnings(hintsWire.warnings + paramsWire.warnings);

    sd_bus_message *made = nullptr;
    check(sd_bus_message_new_method_return(arrived.get(), &made), "make a reply");
    const Message reply(made);
    check(sd_bus_message_rewind(arrived.get(), 1), "rewind");
    check(sd_bus_message_skip(arrived.get(), "sa{sv}"), "skip");
    check(sd_bus_message_copy(reply.get(), arrived.get(), 1), "copy");
    service().send(reply.get());
    runUntil([] { return outcome().has_value(); });
    expectEqual("Code", outcome()->error.code(), Error::NoError);
    expectEqual("Reply", toText(outcome()->reply), toText(paramsWire.json));
    expectWarnings({});
    return 0;
}
