// SPDX-License-Identifier: BSD-3-Clause
// Sends the library signals and replies of any signature. The input is a list of messages. Each message is a letter for
// its kind, a signature, ';', and the values (see BusValueReader):
//   l  the signal "StateChanged" of Lifecycle1
//   t  the signal "StateChanged" of Tasks1
//   m  the signal "PropertiesChanged" of MemoryPressure1
//   T  the reply to "GetAll" of Tasks1
//   M  the reply to "GetAll" of MemoryPressure1
//   I  the reply to an intent
// Letters before the kind modify the message: x sends it from a process that is not the service, u sends a signal to
// this process only, e sends an error instead of a reply. Only a message with the correct signature and sender may have
// an effect, and the effect must agree with the model.
#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure_p.h>
#include <Corvane/task.h>
#include <Corvane/tasks_interface_p.h>
#include <DBus/names.h>

#include <bus_peer.h>
#include <bus_value.h>
#include <expect.h>
#include <target.h>

#include <QtCore/QMap>
#include <QtDBus/QDBusConnection>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace Corvane;
using namespace Fuzz;

namespace {

const QString TaskId = QStringLiteral("sync");
constexpr char PropertiesInterface[] = "org.freedesktop.DBus.Properties";

struct Event
{
    char kind = '\0';
    bool isStrange = false;
    bool isUnicast = false;
    bool isError = false;
    std::vector<BusValue> body;

    QByteArray signature() const
    {
        QByteArray result;
        for (const BusValue &value : body)
            result += value.signature;
        return result;
    }
};

/// The expected state of the library.
struct Model
{
    QStringList states; ///< The states of all tasks, with the number of their properties.
    bool statesKnown = false;
    int level = 0;
};

/// The processes on the bus: the service, and another one.
struct Peers
{
    BusPeer service;
    BusPeer stranger;
    QObject listener;
    QStringList lifecycleStates; ///< The emitted states.
    QStringList levels; ///< The emitted levels.

    /// Replies to the next call, whose method must be \a member.
    void answer(const char *member, const Event &event)
    {
        const Message call = service.next();
        expectEqual("Method", QByteArray(sd_bus_message_get_member(call.get())), QByteArray(member));
        sd_bus_message *made = nullptr;
        const sd_bus_error error = {"a.b.Error", nullptr, 0};
        check(event.isError ? sd_bus_message_new_method_error(call.get(), &made, &error)
                            : sd_bus_message_new_method_return(call.get(), &made),
              "make a reply");
        for (const BusValue &value : event.body)
            append(made, value);
        const Message reply(made);
        service.send(reply.get());
    }
};

Peers &peers()
{
    static auto *const peers = [] {
        startApplication();
        auto *result = new Peers;
        result->service.own(CORVANE_SERVICE_ROOT);
        QObject::connect(Lifecycle::instance(), &Lifecycle::stateChanged, &result->listener,
                         [result](const QString &id, const ApplicationState &state) {
                             result->lifecycleStates.append(id + ' ' + QString::number(quint32(state)));
                         });
        QObject::connect(
            MemoryPressure::instance(), &MemoryPressure::levelChanged, &result->listener,
            [result](MemoryPressure::MemoryLevel level) { result->levels.append(QString::number(int(level))); });
        BusValue nothing;
        nothing.signature = "a{sv}";
        Event empty;
        result->answer("Subscribe", empty);
        empty.body.push_back(nothing);
        result->answer("GetAll", empty);
        TasksInterface::instance();
        result->answer("GetAll", empty);
        settle(result->service);
        return result;
    }();
    return *peers;
}

/// Sets the same initial state for each input: no tasks, and no pressure.
void reset()
{
    BusPeer &service = peers().service;
    const Message states = service.newSignal(Names::Tasks.path(), Names::Tasks.interface, "StateChanged");
    check(sd_bus_message_append(states.get(), "a(sua{sv})", 0), "write no states");
    service.send(states.get());
    const Message level = service.newSignal(Names::MemoryPressure.path(), PropertiesInterface, "PropertiesChanged");
    check(sd_bus_message_append(level.get(), "sa{sv}as", "", 1, "Level", "i", 0, 0), "write a level");
    service.send(level.get());
    settle(service);
}

Event readEvent(BusValueReader &reader)
{
    Event event;
    event.kind = reader.next();
    for (; std::strchr("xue", event.kind) && event.kind != '\0'; event.kind = reader.next()) {
        event.isStrange |= event.kind == 'x';
        event.isUnicast |= event.kind == 'u';
        event.isError |= event.kind == 'e';
    }
    std::vector<QByteArray> types;
    while (!reader.atEnd() && !reader.skip(';') && types.size() < 6)
        types.push_back(reader.type());
    for (const QByteArray &type : types)
        event.body.push_back(reader.value(type, 1));
    return event;
}

/// Returns the values of \a key in a dictionary of variants, the last one first, like a QMap.
QVector<const BusValue *> find(const BusValue &dictionary, const char *key)
{
    QVector<const BusValue *> found;
    for (const BusValue &entry : dictionary.parts) {
        if (entry.parts.front().text == key)
            found.prepend(&entry.parts.back().parts.front());
    }
    return found;
}

/// The value as QVariant::toInt() converts it.
int toInt(const BusValue &value)
{
    switch (value.signature[0]) {
    case 's':
        return int(QString::fromUtf8(value.text).toLongLong());
    case 'd':
        return int(std::llround(numberOf(value)));
    case 'n':
    case 'i':
        return int(numberOf(value));
    case 'a':
        if (value.signature == "ay") {
            QByteArray bytes;
            for (const BusValue &byte : value.parts)
                bytes.append(char(byte.number));
            return int(bytes.toLongLong());
        }
        return 0;
    case 'h': // not a number, though it looks like one on the bus
    case '(':
    case 'v':
    case 'o':
    case 'g':
        return 0;
    default:
        return int(value.number); // of larger ones, the lower half
    }
}

/// Returns whether the level is too large for all integers, so that its conversion is undefined.
bool isUndefined(const Event &event)
{
    for (const BusValue &value : event.body) {
        if (value.signature != "a{sv}")
            continue;
        const auto levels = find(value, "Level");
        for (const BusValue *level : levels) {
            if (level->signature == "d" && !(std::fabs(numberOf(*level)) < 0x7fffffff))
                return true;
        }
    }
    return false;
}

QStringList statesOf(const BusValue &list)
{
    QStringList states;
    for (const BusValue &record : list.parts)
        states.append(QString("%1 %2 %3")
                          .arg(QString::fromUtf8(record.parts[0].text))
                          .arg(record.parts[1].number)
                          .arg(record.parts[2].parts.size()));
    return states;
}

QStringList statesOf(const QVector<TaskState> &list)
{
    QStringList states;
    for (const TaskState &record : list)
        states.append(QString("%1 %2 %3").arg(record.taskId).arg(record.state).arg(record.properties.size()));
    return states;
}

/// Runs one input with new objects. Only the singletons of the library remain from earlier inputs.
class Run
{
public:
    Run()
    {
        QObject::connect(&task, &Task::stateChanged, &task,
                         [this](Task::State state) { taskStates.append(QString::number(int(state))); });
    }

    void play(const Event &event)
    {
        takeWarnings();
        peers().lifecycleStates.clear();
        peers().levels.clear();
        taskStates.clear();
        QStringList expectedWarnings;
        switch (event.kind) {
        case 'l':
            send(event, Names::Lifecycle.path(), Names::Lifecycle.interface, "StateChanged");
            if (!event.isStrange && event.signature() == "su")
                expectedLifecycleStates.append(QString::fromUtf8(event.body[0].text) + ' '
                                               + QString::number(event.body[1].number));
            break;
        case 't':
            send(event, Names::Tasks.path(), Names::Tasks.interface, "StateChanged");
            if (!event.isStrange && event.signature() == "a(sua{sv})")
                applyStates(event.body.front());
            break;
        case 'm':
            send(event, Names::MemoryPressure.path(), PropertiesInterface, "PropertiesChanged");
            if (!event.isStrange && event.signature() == "sa{sv}as") {
                applyLevel(event.body[1], &sharedModel);
                if (memory)
                    applyLevel(event.body[1], &model);
            }
            break;
        case 'T':
            tasks = std::make_unique<TasksInterface>();
            peers().answer("GetAll", event);
            model.states.clear();
            model.statesKnown = isAnswer(event);
            if (model.statesKnown) {
                const auto states = find(event.body.front(), "State");
                for (const BusValue *state : states)
                    model.states = state->signature == "a(sua{sv})" ? statesOf(*state) : QStringList();
            } else {
                expectedWarnings.append("Failed to get the Tasks interface properties");
            }
            break;
        case 'M':
            memory = std::make_unique<MemoryPressurePrivate>(MemoryPressure::instance());
            peers().answer("Subscribe", {});
            peers().answer("GetAll", event);
            model.level = 0;
            if (isAnswer(event))
                applyLevel(event.body.front(), &model);
            else
                expectedWarnings.append("Failed to get memory level:");
            break;
        case 'I':
            invoke(event, &expectedWarnings);
            break;
        default:
            return;
        }
        if (event.kind != 'I') // invoke() has waited for the reply
            settle(event.isStrange ? peers().stranger : peers().service);

        expectEqual("Lifecycle states", peers().lifecycleStates, std::exchange(expectedLifecycleStates, {}));
        expectEqual("Task states", taskStates, std::exchange(expectedTaskStates, {}));
        expectEqual("State of the task", int(task.state()), taskState);
        expectEqual("States of all tasks", statesOf(TasksInterface::instance()->tasksState), sharedModel.states);
        if (tasks) {
            expectEqual("States of all tasks in the new proxy", statesOf(tasks->tasksState), model.states);
            expectEqual("statesKnown of the new proxy", tasks->statesKnown, model.statesKnown);
        }
        peers().levels.sort();
        expectedLevels.sort();
        expectEqual("Changes of the level", peers().levels, std::exchange(expectedLevels, {}));
        expectEqual("Level", int(MemoryPressure::instance()->level()), sharedModel.level);
        if (memory)
            expectEqual("Level of the new object", memory->level, model.level);

        QStringList warnings = takeWarnings();
        expectEqual("Number of warnings", warnings.size(), expectedWarnings.size());
        for (int i = 0; i < warnings.size(); ++i)
            expectEqual("Warning", warnings[i].left(expectedWarnings[i].size()), expectedWarnings[i]);
    }

    /// Returns whether the library has no tasks and no pressure now, as after reset().
    bool leavesNothing() const { return sharedModel.states.isEmpty() && sharedModel.level == 0; }

private:
    static void send(const Event &event, const QString &path, const char *interface, const char *member)
    {
        BusPeer &sender = event.isStrange ? peers().stranger : peers().service;
        const Message message = sender.newSignal(path, interface, member);
        for (const BusValue &value : event.body)
            append(message.get(), value);
        if (event.isUnicast) {
            const QByteArray self = QDBusConnection::sessionBus().baseService().toLatin1();
            check(sd_bus_message_set_destination(message.get(), self.constData()), "address a signal");
        }
        sender.send(message.get());
    }

    static void invoke(const Event &event, QStringList *warnings)
    {
        QJsonObject reply;
        Error error;
        int outcomes = 0;
        IntentsInvoker invoker;
        QObject::connect(&invoker, &IntentsInvoker::replyReceived, &invoker,
                         [&](const QJsonObject &json, const Error &code) {
                             reply = json;
                             error = code;
                             ++outcomes;
                         });
        invoker.invoke("X", {}, {});
        peers().answer("InvokeIntent", event);
        settle(peers().service);
        expectEqual("Outcomes", outcomes, 1);
        expectEqual("Code", error.code(), isAnswer(event) ? Error::NoError : Error::Failed);
        const QJsonValue expected = isAnswer(event) ? jsonOf(event.body.front(), warnings) : QJsonObject();
        expectEqual("Reply", toText(reply), toText(expected.toObject()));
    }

    static bool isAnswer(const Event &event) { return !event.isError && event.signature().startsWith("a{sv}"); }

    void applyStates(const BusValue &list)
    {
        sharedModel.states = statesOf(list);
        if (tasks)
            model.states = sharedModel.states;
        for (const BusValue &record : list.parts) {
            if (QString::fromUtf8(record.parts[0].text) != TaskId)
                continue;
            static const QMap<quint64, int> codes{{0, Task::Stopped}, {1, Task::Running}, {2, Task::Waiting}};
            const int state = codes.value(record.parts[1].number, Task::Unknown);
            if (state != taskState)
                expectedTaskStates.append(QString::number(state));
            taskState = state;
        }
    }

    void applyLevel(const BusValue &properties, Model *changed)
    {
        const auto levels = find(properties, "Level");
        for (const BusValue *level : levels) {
            if (toInt(*level) == changed->level)
                continue;
            changed->level = toInt(*level);
            expectedLevels.append(QString::number(changed->level));
        }
    }

    Task task{TaskId};
    int taskState = Task::Unknown;
    std::unique_ptr<TasksInterface> tasks;
    std::unique_ptr<MemoryPressurePrivate> memory;
    Model sharedModel; ///< The model of the singletons.
    Model model; ///< The model of the objects of this input.
    QStringList taskStates;
    QStringList expectedTaskStates;
    QStringList expectedLifecycleStates;
    QStringList expectedLevels;
};

} // namespace

void Fuzz::runInput(const std::uint8_t *data, std::size_t size)
{
    BusValueReader reader(data, size);
    std::vector<Event> events;
    while (!reader.atEnd())
        events.push_back(readEvent(reader));
    if (reader.descriptors() > CORVANE_MAX_DESCRIPTORS || std::any_of(events.begin(), events.end(), isUndefined))
        return;

    static bool isReset = false;
    if (!isReset)
        reset();
    Run run;
    for (const Event &event : events)
        run.play(event);
    isReset = run.leavesNothing();
}
