// SPDX-License-Identifier: BSD-3-Clause
// Measures how the cost of one element, parameter, level, member, state or call grows with their number. It should not
// grow.
#include "payloads.h"

#include <measure.h>

#include <mirror.h>
#include <sdbus.h>

#include <Core/intent_uri.h>
#include <Core/json_path.h>
#include <Corvane/intents_invoker.h>
#include <Corvane/task.h>
#include <Corvane/tasks_interface_p.h>
#include <DBus/message_meter.h>
#include <DBus/names.h>
#include <DBus/types.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QJsonArray>
#include <QtCore/QUrl>

#include <valgrind/valgrind.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

const int MostInQuickMode = 10000;
const QString Topic = QStringLiteral("Growth: time for one among");

/// The sizes from 10 on, each ten times the one before it.
QVector<int> sizesUpTo(int most)
{
    QVector<int> sizes;
    for (int size = 10; size <= most; size *= 10)
        sizes.append(size);
    return sizes;
}

using Work = std::function<void()>;

/// Omits the largest sizes in quick mode.
/// \param prepare returns the work for a size; the preparation itself is not measured
void grow(Results &results, const QString &caseName, const QVector<int> &sizes,
          const std::function<Work(int size)> &prepare)
{
    std::vector<Variant> variants;
    for (const int size : sizes) {
        if (size < MostInQuickMode || !results.isQuick())
            variants.push_back({QString::number(size), prepare(size), size});
    }
    measure(results, Topic, caseName, variants);
}

/// Returns \a count keys in an unsorted order.
QStringList scatteredKeys(int count)
{
    QStringList keys;
    for (int i = 0; i < count; ++i)
        keys.append(QStringLiteral("member%1").arg(qint64(i) * 7919 % count, 6, 10, QLatin1Char('0')));
    return keys;
}

/// An object whose members are marshalled in this order.
struct Ordered
{
    QStringList keys;
};

QDBusArgument &operator<<(QDBusArgument &argument, const Ordered &members)
{
    argument.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (const QString &key : members.keys) {
        argument.beginMapEntry();
        argument << key << QDBusVariant(1.5);
        argument.endMapEntry();
    }
    argument.endMap();
    return argument;
}

QJsonObject readObject(QDBusArgument argument) // NOLINT(performance-unnecessary-value-param): reading uses it up
{
    QJsonObject object;
    argument >> object;
    return object;
}

void write(const QJsonObject &object)
{
    Corvane::Omissions omissions;
    const Corvane::BusObject body = Corvane::toBusObject(object, Corvane::Place::Params, &omissions);
    Corvane::MessageMeter meter;
    meter.add(body);
    if (!meter.problem().isEmpty())
        qFatal("%s", qPrintable(meter.problem()));
    QDBusArgument argument;
    argument << body;
}

/// Replies to every call with an empty object, in its own thread.
class Service
{
public:
    Service()
    {
        if (sd_bus_open_user(&m_bus) < 0 || sd_bus_request_name(m_bus, CORVANE_SERVICE_ROOT, 0) < 0
            || sd_bus_add_filter(m_bus, nullptr, &Service::answer, nullptr) < 0)
            qFatal("sd-bus has no session bus");
        m_thread = std::thread([this] {
            while (!m_ended) {
                while (sd_bus_process(m_bus, nullptr) > 0) { }
                sd_bus_wait(m_bus, 100000);
            }
        });
    }
    ~Service()
    {
        m_ended = true;
        m_thread.join();
        sd_bus_flush_close_unref(m_bus);
    }
    Q_DISABLE_COPY_MOVE(Service)

private:
    static int answer(sd_bus_message *call, void *, sd_bus_error *)
    {
        if (!sd_bus_message_is_method_call(call, nullptr, "InvokeIntent"))
            return 0;
        sd_bus_message *reply = nullptr;
        sd_bus_message_new_method_return(call, &reply);
        SdBusPeer::append(reply, {});
        sd_bus_send(nullptr, reply, nullptr);
        sd_bus_message_unref(reply);
        return 1;
    }

    sd_bus *m_bus = nullptr;
    std::atomic_bool m_ended = false;
    std::thread m_thread;
};

void pathsAndUris(Results &results)
{
    grow(results, QStringLiteral("elements: expand list[*]"), sizesUpTo(100000), [](int size) {
        const QJsonObject object = Payloads::numbers(size);
        return Work([object] { Core::JsonPath::expand(object, QStringLiteral("numbers[*]")); });
    });
    grow(results, QStringLiteral("elements: expand list[*].member"), sizesUpTo(100000), [](int size) {
        const QJsonObject object = Payloads::objects(size);
        return Work([object] { Core::JsonPath::expand(object, QStringLiteral("objects[*].member000001")); });
    });
    grow(results, QStringLiteral("elements: find each of list[*]"), sizesUpTo(100000), [](int size) {
        const QJsonObject object = Payloads::numbers(size);
        const QStringList paths = Core::JsonPath::expand(object, QStringLiteral("numbers[*]"));
        return Work([object, paths] {
            for (const QString &path : paths)
                Core::JsonPath::value(object, path);
        });
    });
    grow(results, QStringLiteral("params: to a URI"), sizesUpTo(10000), [](int size) {
        const QJsonObject object = Payloads::wide(size);
        return Work([object] { Core::IntentUri::toUri(QStringLiteral("Name"), {}, object); });
    });
    grow(results, QStringLiteral("hints: to a URI"), sizesUpTo(10000), [](int size) {
        const QJsonObject object = Payloads::wide(size);
        return Work([object] { Core::IntentUri::toUri(QStringLiteral("Name"), object, {}); });
    });
    grow(results, QStringLiteral("params: from a URI"), sizesUpTo(10000), [](int size) {
        const QUrl uri = Core::IntentUri::toUri(QStringLiteral("Name"), {}, Payloads::wide(size));
        return Work([uri] { Core::IntentUri::fromUri(uri); });
    });
    grow(results, QStringLiteral("params: from a URI, unsorted"), sizesUpTo(10000), [](int size) {
        const QUrl uri(QStringLiteral("intent://#Intent;name=Name;") + scatteredKeys(size).join(QStringLiteral("=d.1;"))
                       + QStringLiteral("=d.1;end"));
        return Work([uri] { Core::IntentUri::fromUri(uri); });
    });
    grow(results, QStringLiteral("hints: from a URI"), sizesUpTo(10000), [](int size) {
        const QUrl uri = Core::IntentUri::toUri(QStringLiteral("Name"), Payloads::wide(size), {});
        return Work([uri] { Core::IntentUri::fromUri(uri); });
    });
}

void json(Results &results, Mirror *mirror)
{
    const QVector<int> depths{1, 5, 10, 20};
    grow(results, QStringLiteral("levels: JSON to bus"), depths, [](int size) {
        const QJsonObject object = Payloads::nested(size);
        return Work([object] { write(object); });
    });
    grow(results, QStringLiteral("levels: bus to JSON"), depths, [mirror](int size) {
        const QDBusArgument argument = mirror->reflect(QVariant::fromValue(Payloads::nested(size)));
        return Work([argument] { readObject(argument); });
    });
    grow(results, QStringLiteral("members: JSON to bus"), sizesUpTo(100000), [](int size) {
        const QJsonObject object = Payloads::wide(size);
        return Work([object] { write(object); });
    });
    grow(results, QStringLiteral("members: bus to JSON"), sizesUpTo(100000), [mirror](int size) {
        const QDBusArgument argument = mirror->reflect(QVariant::fromValue(Payloads::wide(size)));
        return Work([argument] { readObject(argument); });
    });
    grow(results, QStringLiteral("members: bus to JSON, unsorted"), sizesUpTo(100000), [mirror](int size) {
        QDBusArgument unsorted;
        unsorted << Ordered{scatteredKeys(size)};
        const QDBusArgument argument = mirror->reflect(QVariant::fromValue(unsorted));
        return Work([argument] { readObject(argument); });
    });
}

void states(Results &results)
{
    const auto listOf = [](int size) {
        QVector<Corvane::TaskState> list;
        for (int i = 0; i < size; ++i)
            list.append({QStringLiteral("task%1").arg(i), 1, {}});
        return list;
    };
    const auto announce = [](const QVector<Corvane::TaskState> &list) {
        QMetaObject::invokeMethod(Corvane::TasksInterface::instance(), "onStateChanged", Qt::DirectConnection,
                                  Q_ARG(QVector<Corvane::TaskState>, list));
    };
    const auto makeTasks = [](int count) {
        auto tasks = std::make_shared<std::vector<std::unique_ptr<Corvane::Task>>>();
        for (int i = 0; i < count; ++i)
            tasks->push_back(std::make_unique<Corvane::Task>(QStringLiteral("task%1").arg(i)));
        return tasks;
    };
    {
        const auto tasks = makeTasks(1000);
        grow(results, QStringLiteral("states: 1,000 tasks"), sizesUpTo(10000), [&](int size) {
            const auto list = listOf(size);
            return Work([list, announce] { announce(list); });
        });
    }
    const QVector<int> counts = sizesUpTo(1000);
    for (const int count : counts) {
        const auto tasks = makeTasks(count);
        const auto list = listOf(10000);
        measure(results, Topic, QStringLiteral("tasks: 10,000 states"),
                {{QString::number(count), [list, announce] { announce(list); }, 10000 + count}});
    }
}

void calls(Results &results)
{
    const Service service;
    Corvane::IntentsInvoker invoker;
    QEventLoop loop;
    int expected = 0;
    QObject::connect(&invoker, &Corvane::IntentsInvoker::replyReceived, &loop,
                     [&loop, &expected](const QJsonObject &, const Corvane::Error &error) {
                         if (error.isError())
                             qFatal("%s", qPrintable(error.message()));
                         if (--expected == 0)
                             loop.quit();
                     });
    grow(results, QStringLiteral("calls in flight"), {1, 10, 100, 1000, 10000}, [&](int size) {
        return Work([&invoker, &loop, &expected, size] {
            expected = size;
            for (int i = 0; i < size; ++i)
                invoker.invoke(QStringLiteral("Name"), {}, {});
            loop.exec();
        });
    });
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    Results results(QCoreApplication::arguments());
    Corvane::registerRecordTypes();
    Mirror mirror;
    pathsAndUris(results);
    json(results, &mirror);
    states(results);
    if (RUNNING_ON_VALGRIND == 0) // the bus is most of a call
        calls(results);
    results.write();
    return 0;
}
