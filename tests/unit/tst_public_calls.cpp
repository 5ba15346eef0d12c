// SPDX-License-Identifier: BSD-3-Clause
// Calls of the public API in the forms that applications use. The build of this file fails if a new overload makes a
// call ambiguous, or if the signature of a function changes.
#include <Corvane/Error>
#include <Corvane/IncomingIntent>
#include <Corvane/IntentRequest>
#include <Corvane/IntentsInvoker>
#include <Corvane/Lifecycle>
#include <Corvane/MemoryPressure>
#include <Corvane/RuntimeDispatcher>
#include <Corvane/Schedule>
#include <Corvane/ServiceMonitor>
#include <Corvane/Task>
#include <Corvane/TaskMessaging>
#include <Corvane/TaskProcess>
#include <Corvane/meta_types.h>

#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <type_traits>

using namespace Corvane;

using Callback = std::function<void(const Error &)>;
using Handler = RuntimeDispatcher::IntentHandler;
using ReplyFunction = RuntimeDispatcher::ReplyFunction;

/// Compiles only if \a Function is the only function of its name.
template<auto Function, typename Signature>
constexpr bool hasSignature = std::is_same_v<decltype(Function), Signature>;

static_assert(hasSignature<&Error::code, Error::Code (Error::*)() const>);
static_assert(hasSignature<&Error::message, QString (Error::*)() const>);
static_assert(hasSignature<&Error::isError, bool (Error::*)() const>);
static_assert(hasSignature<&Error::operator bool, bool (Error::*)() const>);

static_assert(hasSignature<&IntentsInvoker::invoke,
                           void (IntentsInvoker::*)(const QString &, const QJsonObject &, const QJsonObject &)>);
static_assert(
    hasSignature<&IntentsInvoker::intentToUri, QUrl (*)(const QString &, const QJsonObject &, const QJsonObject &)>);
static_assert(
    hasSignature<&IntentsInvoker::replyReceived, void (IntentsInvoker::*)(const QJsonObject &, const Error &)>);

static_assert(hasSignature<&Lifecycle::instance, Lifecycle *(*)()>);
static_assert(hasSignature<&Lifecycle::startService, Error (Lifecycle::*)()>);
static_assert(hasSignature<&Lifecycle::stopService, Error (Lifecycle::*)()>);
static_assert(hasSignature<&Lifecycle::stateChanged, void (Lifecycle::*)(const QString &, const ApplicationState &)>);

static_assert(hasSignature<&MemoryPressure::instance, MemoryPressure *(*)()>);
static_assert(hasSignature<&MemoryPressure::level, MemoryPressure::MemoryLevel (MemoryPressure::*)() const>);
static_assert(hasSignature<&MemoryPressure::levelChanged, void (MemoryPressure::*)(MemoryPressure::MemoryLevel)>);

static_assert(hasSignature<&RuntimeDispatcher::instance, RuntimeDispatcher *(*)()>);
static_assert(hasSignature<&RuntimeDispatcher::applicationId, QString (RuntimeDispatcher::*)() const>);
static_assert(hasSignature<&RuntimeDispatcher::applicationInstanceId, QString (RuntimeDispatcher::*)() const>);
static_assert(hasSignature<&RuntimeDispatcher::taskId, QString (RuntimeDispatcher::*)() const>);
static_assert(hasSignature<&RuntimeDispatcher::localServerSocket, int (RuntimeDispatcher::*)() const>);
static_assert(hasSignature<&RuntimeDispatcher::startService, Error (RuntimeDispatcher::*)()>);
static_assert(hasSignature<&RuntimeDispatcher::stopService, Error (RuntimeDispatcher::*)()>);
static_assert(
    hasSignature<&RuntimeDispatcher::onApplicationStarted, void (RuntimeDispatcher::*)(const std::function<void()> &)>);
static_assert(hasSignature<&RuntimeDispatcher::onTaskStarted,
                           void (RuntimeDispatcher::*)(const QString &, const std::function<void(const QString &)> &)>);
static_assert(
    hasSignature<&RuntimeDispatcher::registerIntent, void (RuntimeDispatcher::*)(const QString &, const Handler &)>);
static_assert(hasSignature<&RuntimeDispatcher::unregisterIntent, void (RuntimeDispatcher::*)(const QString &)>);
static_assert(hasSignature<&RuntimeDispatcher::registerIntentOutputFiles,
                           void (RuntimeDispatcher::*)(const QString &, const QStringList &, const QStringList &)>);

static_assert(hasSignature<&Schedule::sinceDate, Schedule &(Schedule::*)(const QDateTime &)>);
static_assert(hasSignature<&Schedule::tillDate, Schedule &(Schedule::*)(const QDateTime &)>);
static_assert(hasSignature<&Schedule::onMonths, Schedule &(Schedule::*)(const QList<int> &)>);
static_assert(hasSignature<&Schedule::onWeekDays, Schedule &(Schedule::*)(const QList<int> &)>);
static_assert(hasSignature<&Schedule::onHours, Schedule &(Schedule::*)(const QList<int> &)>);
static_assert(hasSignature<&Schedule::onMinutes, Schedule &(Schedule::*)(const QList<int> &)>);
static_assert(hasSignature<&Schedule::startDate, QDateTime (Schedule::*)() const>);
static_assert(hasSignature<&Schedule::endDate, QDateTime (Schedule::*)() const>);
static_assert(hasSignature<&Schedule::months, QList<int> (Schedule::*)() const>);
static_assert(hasSignature<&Schedule::weekDays, QList<int> (Schedule::*)() const>);
static_assert(hasSignature<&Schedule::hours, QList<int> (Schedule::*)() const>);
static_assert(hasSignature<&Schedule::minutes, QList<int> (Schedule::*)() const>);

static_assert(hasSignature<&ServiceMonitor::isAvailable, bool (ServiceMonitor::*)() const>);
static_assert(hasSignature<&ServiceMonitor::availableSince, QDateTime (ServiceMonitor::*)() const>);
static_assert(hasSignature<&ServiceMonitor::refresh, void (ServiceMonitor::*)()>);
static_assert(hasSignature<&ServiceMonitor::availableChanged, void (ServiceMonitor::*)(bool)>);

static_assert(hasSignature<&Task::taskId, QString (Task::*)() const>);
static_assert(hasSignature<&Task::state, Task::State (Task::*)() const>);
static_assert(hasSignature<&Task::properties, QVariantMap (Task::*)() const>);
static_assert(hasSignature<&Task::withArguments, Task &(Task::*)(const QStringList &)>);
static_assert(hasSignature<&Task::withStartTime, Task &(Task::*)(const QDateTime &)>);
static_assert(hasSignature<&Task::withIpcSocket, Task &(Task::*)(bool)>);
static_assert(hasSignature<&Task::withSchedule, Task &(Task::*)(const Schedule &)>);
static_assert(hasSignature<&Task::withPriority, Task &(Task::*)(int)>);
static_assert(hasSignature<&Task::withAutostart, Task &(Task::*)(bool)>);
static_assert(hasSignature<&Task::withInterval, Task &(Task::*)(int)>);
static_assert(hasSignature<&Task::withMaximumRunningTime, Task &(Task::*)(int)>);
static_assert(hasSignature<&Task::withStartDelay, Task &(Task::*)(int)>);
static_assert(hasSignature<&Task::arguments, QStringList (Task::*)() const>);
static_assert(hasSignature<&Task::startTime, QDateTime (Task::*)() const>);
static_assert(hasSignature<&Task::hasIpcSocket, bool (Task::*)() const>);
static_assert(hasSignature<&Task::schedule, Schedule (Task::*)() const>);
static_assert(hasSignature<&Task::priority, int (Task::*)() const>);
static_assert(hasSignature<&Task::autostart, bool (Task::*)() const>);
static_assert(hasSignature<&Task::interval, int (Task::*)() const>);
static_assert(hasSignature<&Task::maximumRunningTime, int (Task::*)() const>);
static_assert(hasSignature<&Task::startDelay, int (Task::*)() const>);
static_assert(hasSignature<&Task::socketPath, QString (Task::*)() const>);
static_assert(hasSignature<&Task::start, void (Task::*)(const Callback &)>);
static_assert(hasSignature<&Task::stop, void (Task::*)(QFlags<Task::StopFlag>, const Callback &)>);
static_assert(hasSignature<&Task::stateChanged, void (Task::*)(Task::State)>);

static_assert(hasSignature<&TaskMessaging::state, TaskMessaging::State (TaskMessaging::*)() const>);
static_assert(hasSignature<&TaskMessaging::sendMessage, bool (TaskMessaging::*)(const QJsonObject &)>);
static_assert(hasSignature<&TaskMessaging::stateChanged, void (TaskMessaging::*)(TaskMessaging::State)>);
static_assert(hasSignature<&TaskMessaging::messageReceived, void (TaskMessaging::*)(const QJsonObject &)>);

static_assert(hasSignature<&TaskProcess::taskId, QString (TaskProcess::*)() const>);
static_assert(hasSignature<&TaskProcess::messaging, TaskMessaging *(TaskProcess::*)() const>);
static_assert(hasSignature<&TaskProcess::isStopRequested, bool (TaskProcess::*)() const>);
static_assert(hasSignature<&TaskProcess::finish, void (TaskProcess::*)(int)>);
static_assert(hasSignature<&TaskProcess::stopRequested, void (TaskProcess::*)()>);
static_assert(hasSignature<&TaskProcess::clientConnected, void (TaskProcess::*)()>);

// No test runs the functions below. They have external linkage, so that the linker resolves each call.

void callErrors()
{
    Error error;
    error = {};
    error = Error::Failed;
    error = {Error::Failed, "text"};
    error = Error({});
    error = Error({}, {});
    error = Error(Error::Failed);
    error = Error(Error::Failed, {});
    error = Error(Error::Failed, nullptr);
    error = Error{Error::Failed, "text"};
    const Error copy = error;
    const bool failed = copy || copy.isError() || error == copy || error != copy || !error;
    const bool timedOut = failed && (error == Error::Failed || Error::NoError != error);
    const bool compared = error == timedOut;
    qInfo() << compared << error.message() << int(error.code());
}

void callIntentsInvoker(IntentsInvoker &invoker)
{
    const IntentsInvoker byDefault;
    const IntentsInvoker byNull(nullptr);
    const IntentsInvoker byBraces({});
    const IntentsInvoker withParent(&invoker);

    invoker.invoke("X", {}, {});
    invoker.invoke({}, {}, {});
    invoker.invoke(nullptr, {}, {});
    invoker.invoke("X", QJsonObject(), {});
    invoker.invoke("X", {}, QJsonObject());
    invoker.invoke("X", {{"readFiles", QJsonArray{"file"}}}, {{"file", "/tmp/a"}});
    invoker.invoke("X", {{"wait", true}, {"count", 1}},
                   {{"null", {}}, {"array", QJsonArray{}}, {"object", QJsonObject{}}});
    const QUrl uris[] = {
        IntentsInvoker::intentToUri("X", {}, {}), IntentsInvoker::intentToUri({}, {}, {}),
        IntentsInvoker::intentToUri("X", {{"a", 1}}, {{"b", "text"}}),
        invoker.intentToUri("X", {}, {{"b", "text"}}), // NOLINT(readability-static-accessed-through-instance)
    };
    qInfo() << uris[0];
    QObject::connect(&invoker, &IntentsInvoker::replyReceived, [](const QJsonObject &, const Error &) {});
    QObject::connect(&invoker, &IntentsInvoker::replyReceived, &invoker, [](const auto &) {});
    QObject::connect(&invoker, &IntentsInvoker::replyReceived, &invoker, [] {});
}

void callRequests(IntentsInvoker &invoker, const QString &name, const QUrl &uri)
{
    IntentRequest *request = invoker.request("X");
    for (IntentRequest *other :
         {invoker.request(name), invoker.request("X", {}), invoker.request(name, {}), invoker.request({}, {}),
          invoker.request("X", {{"a", 1}}), invoker.request(name, {{"a", 1}, {"b", {}}}), invoker.request("X", {}, {}),
          invoker.request(name, {}, {{"a", 1}}), invoker.request("X", {{"h", 1}}, {{"a", 1}}), invoker.request(uri),
          invoker.request(IntentUri(uri)), invoker.request(IntentUri(uri, IntentUri::KeepFileHints))})
        qInfo() << other->state() << other->result().state << other->intentName();
    request->setTimeout(std::chrono::seconds(5));
    request->setTimeout(std::chrono::hours(1));
    request->setAutoDelete(true);
    request->then(&invoker, {});
    request->then({}, nullptr);
    request->then(nullptr, [](const QJsonObject &, const Error &) {});
    request->then(&invoker, [](const auto &reply, const auto &error) { qInfo() << reply << error; });
    request->cancel();
    QObject::connect(request, &IntentRequest::finished, &invoker, [] {});
}

void callNotices(QObject &receiver)
{
    for (const Error &error : {Lifecycle::instance()->startService(), Lifecycle::instance()->stopService()})
        qInfo() << error.message();
    QObject::connect(Lifecycle::instance(), &Lifecycle::stateChanged, &receiver, [](const QString &, quint32) {});
    QObject::connect(Lifecycle::instance(), &Lifecycle::stateChanged, [](const QString &, ApplicationState) {});

    const bool isLow = MemoryPressure::instance()->level() >= MemoryPressure::LowLevel;
    const int level = MemoryPressure::instance()->level();
    qInfo() << isLow << level;
    QObject::connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, &receiver, [](int) {});
}

void callServiceMonitor(ServiceMonitor &monitor)
{
    const ServiceMonitor byDefault;
    const ServiceMonitor byNull(nullptr);
    const ServiceMonitor byBraces({});
    const ServiceMonitor withParent(&monitor);

    monitor.refresh();
    qInfo() << monitor.isAvailable() << monitor.availableSince();
    QObject::connect(&monitor, &ServiceMonitor::availableChanged, &monitor, &ServiceMonitor::refresh);
    QObject::connect(&monitor, &ServiceMonitor::availableChanged, &monitor, [](bool) {});
    QObject::connect(&monitor, &ServiceMonitor::availableChanged, [] {});
}

void handle(const QJsonObject &params, const ReplyFunction &reply)
{
    reply(params);
}

void callRuntimeDispatcher(RuntimeDispatcher *dispatcher)
{
    const RuntimeDispatcher own;
    dispatcher->registerIntent("X", {});
    dispatcher->registerIntent("X", nullptr);
    dispatcher->registerIntent({}, {});
    dispatcher->registerIntent("X", handle);
    dispatcher->registerIntent("X", &handle);
    dispatcher->registerIntent("X", [](const QJsonObject &, const ReplyFunction &reply) { reply({}); });
    dispatcher->registerIntent("X", [](const QJsonObject &, const auto &reply) { reply({{"a", 1}}); });
    dispatcher->registerIntent("X", [](const auto &params, const auto &reply) { reply(params); });
    dispatcher->registerIntent(
        "X", [](const QVariant &, const std::function<void(QJsonObject)> &reply) { reply(QJsonObject()); });
    dispatcher->registerIntentHandler("X", {});
    dispatcher->registerIntentHandler("X", nullptr);
    dispatcher->registerIntentHandler({}, {});
    dispatcher->registerIntentHandler("X", [](const IncomingIntent &intent) { intent.reply(); });
    dispatcher->registerIntentHandler("X", [](IncomingIntent intent) { intent.reply({}); }); // NOLINT
    dispatcher->registerIntentHandler("X", [](const auto &intent) { intent.reply({{"a", 1}}); });
    dispatcher->registerIntentHandler("X", [](const IncomingIntent &intent) {
        intent.setOutputFiles({});
        intent.setOutputFiles({"file"}, {"list[*]"});
        QTimer::singleShot(0, qApp, [intent] { intent.fail("text"); });
    });
    dispatcher->unregisterIntent("X");
    dispatcher->unregisterIntent({});
    dispatcher->registerIntentOutputFiles("X", {}, {});
    dispatcher->registerIntentOutputFiles({}, {}, {});
    dispatcher->registerIntentOutputFiles("X", {"file"}, {"list[*]", "other"});
    dispatcher->onApplicationStarted({});
    dispatcher->onApplicationStarted(nullptr);
    dispatcher->onApplicationStarted([] {});
    dispatcher->onTaskStarted({}, {});
    dispatcher->onTaskStarted("sync", nullptr);
    dispatcher->onTaskStarted("sync", [](const QString &) {});
    dispatcher->onTaskStarted({}, [](const auto &taskId) { qInfo() << taskId; });
    if (const Error error = dispatcher->startService())
        qInfo() << error.message();
}

void callSchedule()
{
    Schedule schedule;
    schedule = Schedule();
    schedule = Schedule{};
    schedule = {};
    schedule = QVariantMap();
    schedule = Schedule(QVariantMap());
    schedule = Schedule({{"Hours", QVariantList{8}}});
    schedule = Schedule{{{"Hours", 8}}};
    schedule.sinceDate({}).tillDate({}).onMonths({}).onWeekDays({}).onHours({}).onMinutes({});
    schedule.onMonths({1}).onWeekDays({1, 2, 3, 4, 5}).onHours({8, 20}).onMinutes({0, 30});
    schedule.sinceDate(QDateTime::currentDateTime()).tillDate({QDate(2030, 1, 2), QTime(3, 4)});
    const Schedule copy = schedule;
    qInfo() << copy.hours();
}

void callTask(Task &task)
{
    const Task byName("sync");
    const Task byNull("sync", nullptr);
    const Task byBraces("sync", {});
    const Task withParent("sync", &task);
    const Task unnamed({});
    const Task nothing({}, {});

    task.withArguments({}).withStartTime({}).withIpcSocket({}).withSchedule({}).withPriority({}).withAutostart({});
    task.withInterval({}).withMaximumRunningTime({}).withStartDelay({});
    task.withArguments({"--all", "-v"}).withStartTime(QDateTime::currentDateTime()).withIpcSocket(true);
    task.withSchedule(Schedule().onHours({8})).withSchedule(QVariantMap()).withSchedule({{{"Hours", 8}}});
    task.withPriority(1).withAutostart(false).withInterval(3600).withMaximumRunningTime(60).withStartDelay(5);

    task.start();
    task.start({});
    task.start(nullptr);
    task.start(Callback());
    task.start([](const Error &) {});
    task.start([](const auto &error) { qInfo() << error.message(); });
    task.start([](bool) {});
    task.stop();
    task.stop({});
    task.stop(Task::Force);
    task.stop({Task::Force});
    task.stop(Task::StopFlags());
    task.stop(Task::StopFlags(Task::Force) | Task::Force);
    task.stop({}, {});
    task.stop({}, nullptr);
    task.stop(Task::Force, {});
    task.stop(Task::Force, nullptr);
    task.stop(Task::Force, [](const Error &) {});
    task.stop({}, [](const auto &error) { qInfo() << error.message(); });
    QObject::connect(&task, &Task::stateChanged, &task, [](Task::State) {});
    QObject::connect(&task, &Task::stateChanged, [](int) {});
    QObject::connect(&task, &Task::stateChanged, &task, [](auto) {});
}

void callTaskMessaging(TaskMessaging &channel)
{
    const TaskMessaging byPath("/run/task.socket");
    const TaskMessaging byPathAndNull("/run/task.socket", nullptr);
    const TaskMessaging byPathAndBraces(QString(), {});
    const TaskMessaging byDescriptor(3);
    const TaskMessaging byZero(0, nullptr);
    const TaskMessaging byBraces({}, {});
    const TaskMessaging withParent(3, &channel);

    bool sent = channel.sendMessage({});
    sent = channel.sendMessage({{"progress", 40}}) || sent;
    sent = channel.sendMessage({{"a", QJsonObject{}}, {"b", {}}}) || sent;
    qInfo() << sent << (channel.state() == TaskMessaging::Connected);
    QObject::connect(&channel, &TaskMessaging::stateChanged, &channel, [](TaskMessaging::State) {});
    QObject::connect(&channel, &TaskMessaging::messageReceived, &channel, [](const QJsonObject &) {});
    registerMetaTypes();
}

void callTaskProcess(TaskProcess &process)
{
    const TaskProcess byDefault;
    const TaskProcess byNull(nullptr);
    const TaskProcess byBraces({});
    const TaskProcess withParent(&process);

    process.finish();
    process.finish(1);
    QObject::connect(&process, &TaskProcess::stopRequested, &process, [&process] { process.finish(); });
    QObject::connect(&process, SIGNAL(stopRequested()), &process, SLOT(finish())); // NOLINT
    if (TaskMessaging *channel = process.messaging())
        channel->sendMessage({{"task", process.taskId()}, {"stops", process.isStopRequested()}});
    qInfo() << TaskProcess::MaximumFinishTime.count();
}

Q_DECLARE_METATYPE(const QMetaObject *)

class TestPublicCalls : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void metaObjectsHaveOnlyTheseMembers_data();
    void metaObjectsHaveOnlyTheseMembers();
};

void TestPublicCalls::metaObjectsHaveOnlyTheseMembers_data()
{
    QTest::addColumn<const QMetaObject *>("meta");
    QTest::addColumn<QStringList>("members");

    const auto row = [](const QMetaObject &meta, const QStringList &members) {
        QTest::newRow(meta.className()) << &meta << members;
    };
    row(Error::staticMetaObject, {"property int code", "property QString message"});
    row(IncomingIntent::staticMetaObject,
        {"property QString intentName", "property QJsonObject params", "property bool answered"});
    row(IntentRequest::staticMetaObject,
        {"signal void finished()", "enumeration State", "property QString intentName", "property State state",
         "property QJsonObject reply", "property Corvane::Error error"});
    row(IntentsInvoker::staticMetaObject, {"signal void replyReceived(QJsonObject,Corvane::Error) reply error"});
    row(Lifecycle::staticMetaObject, {"signal void stateChanged(QString,ApplicationState) appInstanceId state"});
    row(MemoryPressure::staticMetaObject,
        {"signal void levelChanged(MemoryLevel) level", "enumeration MemoryLevel", "property MemoryLevel level"});
    row(RuntimeDispatcher::staticMetaObject, {"method Error startService()", "method Error stopService()"});
    row(ServiceMonitor::staticMetaObject,
        {"signal void availableChanged(bool) available", "slot void refresh()", "property bool available",
         "property QDateTime availableSince"});
    row(Task::staticMetaObject, {"signal void stateChanged(Task::State) state"});
    row(TaskMessaging::staticMetaObject,
        {"signal void stateChanged(State) state", "signal void messageReceived(QJsonObject) message"});
    row(TaskProcess::staticMetaObject,
        {"signal void stopRequested()", "signal void clientConnected()", "slot void finish(int) exitCode",
         "slot void finish()", "property QString taskId", "property bool stopping"});
}

void TestPublicCalls::metaObjectsHaveOnlyTheseMembers()
{
    QFETCH(const QMetaObject *, meta);
    QFETCH(QStringList, members);

    const char *const kinds[] = {"method", "signal", "slot", "constructor"};
    QStringList found;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        QByteArray text =
            kinds[method.methodType()] + QByteArray(" ") + method.typeName() + ' ' + method.methodSignature();
        const QList<QByteArray> names = method.parameterNames();
        for (const QByteArray &name : names)
            text += ' ' + name;
        found << text;
    }
    for (int i = meta->enumeratorOffset(); i < meta->enumeratorCount(); ++i)
        found << QByteArray("enumeration ") + meta->enumerator(i).name();
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
        found << QByteArray("property ") + meta->property(i).typeName() + ' ' + meta->property(i).name();
    QCOMPARE(found, members);
    QCOMPARE(meta->constructorCount(), 0);
    const bool isGadget = meta == &Error::staticMetaObject || meta == &IncomingIntent::staticMetaObject;
    QCOMPARE(meta->superClass(), isGadget ? nullptr : &QObject::staticMetaObject);
}

QTEST_GUILESS_MAIN(TestPublicCalls)
#include "tst_public_calls.moc"
