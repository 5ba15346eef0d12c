// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include "json.h"

#include <Core/object_builder.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusMetaType>

namespace {

/// Reads the next value of \a arg, which has the type \a type. Returns false, and reads nothing, if the type is not
/// supported.
bool readKnown(const QDBusArgument &arg, QDBusArgument::ElementType type, QJsonValue &value);

/// Reads the content of the variant. May clear the variant.
void takeContent(QVariant &variant, QJsonValue &value)
{
    switch (variant.userType()) {
    case QMetaType::UChar: // Qt makes strings of these three
    case QMetaType::Short:
    case QMetaType::UShort:
        value = variant.toInt();
        return;
    default:
        break;
    }
    if (variant.userType() == qMetaTypeId<QDBusArgument>()) {
        const auto arg = variant.value<QDBusArgument>();
        variant.clear(); // an argument that is nowhere else is read without being copied
        arg >> value;
    } else if (variant.userType() == qMetaTypeId<QDBusVariant>()) {
        QVariant inner = variant.value<QDBusVariant>().variant();
        takeContent(inner, value);
    } else {
        value = QJsonValue::fromVariant(variant);
    }
}

bool readKnown(const QDBusArgument &arg, QDBusArgument::ElementType type, QJsonValue &value)
{
    switch (type) {
    case QDBusArgument::BasicType: {
        QVariant variant = arg.asVariant();
        takeContent(variant, value);
        return true;
    }
    case QDBusArgument::VariantType: {
        QVariant variant = qdbus_cast<QDBusVariant>(arg).variant();
        takeContent(variant, value);
        return true;
    }
    case QDBusArgument::ArrayType: {
        QJsonArray array;
        arg >> array;
        value = array;
        return true;
    }
    case QDBusArgument::MapType: {
        QJsonObject object;
        arg >> object;
        value = object;
        return true;
    }
    case QDBusArgument::StructureType:
    case QDBusArgument::MapEntryType:
    case QDBusArgument::UnknownType:
        break;
    }
    return false;
}

/// Converts the value, and logs all omitted values.
QVariant converted(const QJsonValue &value)
{
    Corvane::Omissions omissions;
    const QVariant result = Corvane::toBus(value, Corvane::Place::Params, &omissions);
    omissions.log();
    return result;
}

/// Writes a converted value. QDBusArgument::appendVariant() would write a registered type through a second reference,
/// from which a standalone argument detaches.
void write(QDBusArgument &arg, const QVariant &converted)
{
    const int type = converted.userType();
    if (type == QMetaType::QVariantList)
        arg << converted.toList();
    else if (type == qMetaTypeId<QList<bool>>())
        arg << converted.value<QList<bool>>();
    else if (type == qMetaTypeId<QList<double>>())
        arg << converted.value<QList<double>>();
    else if (type == qMetaTypeId<Corvane::BusObject>())
        arg << converted.value<Corvane::BusObject>();
    else if (type == qMetaTypeId<QVector<Corvane::BusObject>>())
        arg << converted.value<QVector<Corvane::BusObject>>();
    else if (converted.isValid())
        arg.appendVariant(converted); // basic types and QStringList
}

} // namespace

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonValue &value)
{
    Corvane::registerRecordTypes(); // the marshaller must know the types of nested values
    if (value.isNull())
        arg << QDBusVariant(QVariant());
    else
        write(arg, converted(value));
    return arg;
}

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonArray &array)
{
    return arg << QJsonValue(array);
}

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonObject &object)
{
    return arg << QJsonValue(object);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonValue &value)
{
    if (!readKnown(arg, arg.currentType(), value))
        qWarning() << "Unsupported type: " << arg.currentSignature();
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonArray &array)
{
    arg.beginArray();
    const QDBusArgument::ElementType type = arg.currentType(); // all elements have the same
    while (!arg.atEnd()) {
        QJsonValue value;
        if (!readKnown(arg, type, value)) {
            arg >> value; // logs the warning
            break; // the structure is not consumed: atEnd() would never return true
        }
        array.append(value);
    }
    arg.endArray();
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonObject &object)
{
    Core::ObjectBuilder members(object);
    QDBusArgument::ElementType type = QDBusArgument::UnknownType; // all values have the same
    arg.beginMap();
    while (!arg.atEnd()) {
        QString key;
        QJsonValue value;
        arg.beginMapEntry();
        arg >> key;
        if (type == QDBusArgument::UnknownType)
            type = arg.currentType();
        if (!readKnown(arg, type, value))
            arg >> value; // logs it
        arg.endMapEntry();
        members.insert(key, value);
    }
    arg.endMap();
    object = members.take();
    return arg;
}

namespace Corvane {

namespace {

QDBusArgument &operator<<(QDBusArgument &arg, ApplicationState state)
{
    return arg << quint32(state);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, ApplicationState &state)
{
    quint32 code = 0;
    arg >> code;
    state = ApplicationState(code);
    return arg;
}

template<typename Type>
void registerWriteOnly()
{
    QDBusMetaType::registerMarshallOperators(
        qMetaTypeId<Type>(), [](QDBusArgument &arg, const void *value) { arg << *static_cast<const Type *>(value); },
        [](const QDBusArgument &, void *) {});
}

template<typename Type>
void demarshall(const QDBusArgument &arg, void *value)
{
    arg >> *static_cast<Type *>(value);
}

/// Writes each array as av. Qt determines the signature of the type from an empty array, and the value in a variant
/// must have this signature.
void marshallArray(QDBusArgument &arg, const void *value)
{
    arg << converted(*static_cast<const QJsonArray *>(value)).value<QVariantList>();
}

/// Makes Qt refuse the message. A QJsonValue has no fixed signature, and Qt crashes on a type without one. The declared
/// signature is therefore av, and the element is an invalid variant.
void marshallValue(QDBusArgument &arg, const void *)
{
    arg.beginArray(qMetaTypeId<QDBusVariant>());
    arg << QDBusVariant(QVariant());
    arg.endArray();
}

template<typename... Members>
QDBusArgument &writeRecord(QDBusArgument &arg, const Members &...members)
{
    arg.beginStructure();
    (arg << ... << members);
    arg.endStructure();
    return arg;
}

template<typename... Members>
const QDBusArgument &readRecord(const QDBusArgument &arg, Members &...members)
{
    arg.beginStructure();
    (arg >> ... >> members);
    arg.endStructure();
    return arg;
}

} // namespace

QDBusArgument &operator<<(QDBusArgument &arg, const TaskState &record)
{
    return writeRecord(arg, record.taskId, record.state, record.properties);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, TaskState &record)
{
    return readRecord(arg, record.taskId, record.state, record.properties);
}

QDBusArgument &operator<<(QDBusArgument &arg, const AvailableTask &record)
{
    return writeRecord(arg, record.taskId, record.properties);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, AvailableTask &record)
{
    return readRecord(arg, record.taskId, record.properties);
}

QDBusArgument &operator<<(QDBusArgument &arg, const ActiveTask &record)
{
    return writeRecord(arg, record.taskId, record.processId, record.properties);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, ActiveTask &record)
{
    return readRecord(arg, record.taskId, record.processId, record.properties);
}

QDBusArgument &operator<<(QDBusArgument &arg, const RunningApplication &record)
{
    return writeRecord(arg, record.instanceId, record.processId, record.state, record.previousState, record.properties);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, RunningApplication &record)
{
    return readRecord(arg, record.instanceId, record.processId, record.state, record.previousState, record.properties);
}

QDBusArgument &operator<<(QDBusArgument &arg, const RunningService &record)
{
    return writeRecord(arg, record.serviceId, record.instanceId, record.processId, record.state, record.properties);
}

const QDBusArgument &operator>>(const QDBusArgument &arg, RunningService &record)
{
    return readRecord(arg, record.serviceId, record.instanceId, record.processId, record.state, record.properties);
}

void registerRecordTypes()
{
    static bool registered = false;
    if (registered)
        return;

    // Signatures written as text, and the meta-objects of our classes, use these names.
    qRegisterMetaType<RunningApplication>("RunningApplication");
    qRegisterMetaType<QVector<RunningApplication>>("QVector<RunningApplication>");
    qRegisterMetaType<RunningService>("RunningService");
    qRegisterMetaType<QVector<RunningService>>("QVector<RunningService>");
    qRegisterMetaType<TaskState>("TaskState");
    qRegisterMetaType<QVector<TaskState>>("QVector<TaskState>");
    qRegisterMetaType<QVector<AvailableTask>>("QVector<AvailableTask>");
    qRegisterMetaType<QVector<ActiveTask>>("QVector<ActiveTask>");
    qRegisterMetaType<ApplicationState>("ApplicationState");

    qDBusRegisterMetaType<RunningApplication>();
    qDBusRegisterMetaType<QVector<RunningApplication>>();
    qDBusRegisterMetaType<RunningService>();
    qDBusRegisterMetaType<QVector<RunningService>>();
    qDBusRegisterMetaType<TaskState>();
    qDBusRegisterMetaType<QVector<TaskState>>();
    qDBusRegisterMetaType<AvailableTask>();
    qDBusRegisterMetaType<QVector<AvailableTask>>();
    qDBusRegisterMetaType<ActiveTask>();
    qDBusRegisterMetaType<QVector<ActiveTask>>();

    QDBusMetaType::registerMarshallOperators(QMetaType::QJsonArray, marshallArray, demarshall<QJsonArray>);
    qDBusRegisterMetaType<QJsonObject>();
    QDBusMetaType::registerMarshallOperators(QMetaType::QJsonValue, marshallValue, demarshall<QJsonValue>);
    registerWriteOnly<BusObject>();
    registerWriteOnly<QVector<BusObject>>();
    qDBusRegisterMetaType<QList<QVariantMap>>(); // as jsonArrayToVariant() returns it, and in schedules

    registered = true;
}

} // namespace Corvane
