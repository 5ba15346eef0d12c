// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include "message_meter.h"

#include <Core/types.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusMetaType>

namespace {

/// Reads what is next in \a arg, of this type; false if that cannot be read and is still there.
bool readValue(const QDBusArgument &arg, QDBusArgument::ElementType type, QJsonValue &value);

/// What the variant holds; the variant may be empty afterwards.
QJsonValue takeValue(QVariant &variant)
{
    switch (variant.userType()) {
    case QMetaType::UChar: // Qt makes strings of these three
    case QMetaType::Short:
    case QMetaType::UShort:
        return variant.toInt();
    default:
        break;
    }
    if (variant.userType() == qMetaTypeId<QDBusArgument>()) {
        QJsonValue value;
        const auto arg = variant.value<QDBusArgument>();
        variant.clear(); // an argument that is nowhere else is read without being copied
        readValue(arg, arg.currentType(), value);
        return value;
    }
    if (variant.userType() == qMetaTypeId<QDBusVariant>()) {
        QVariant inner = variant.value<QDBusVariant>().variant();
        return takeValue(inner);
    }
    return QJsonValue::fromVariant(variant);
}

bool readValue(const QDBusArgument &arg, QDBusArgument::ElementType type, QJsonValue &value)
{
    switch (type) {
    case QDBusArgument::BasicType: {
        QVariant variant = arg.asVariant();
        value = takeValue(variant);
        return true;
    }
    case QDBusArgument::VariantType: {
        QVariant variant = qdbus_cast<QDBusVariant>(arg).variant();
        value = takeValue(variant);
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
    qWarning() << "Unsupported type: " << arg.currentSignature();
    return false;
}

} // namespace

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonValue &value)
{
    Corvane::registerRecordTypes(); // the marshaller has to know what is nested in here
    if (value.isNull()) { // gives QtDBus the signature of QJsonValue, which it asks of a default-made value
        arg << QDBusVariant(QVariant());
        return arg;
    }
    const QVariant converted = Corvane::MessageMeter::converted(value);
    if (converted.isValid())
        arg.appendVariant(converted);
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
    readValue(arg, arg.currentType(), value);
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonArray &array)
{
    array = {};
    arg.beginArray();
    const QDBusArgument::ElementType type = arg.currentType(); // all elements have the same
    while (!arg.atEnd()) {
        QJsonValue value;
        if (!readValue(arg, type, value))
            break; // it is still there, and would be for ever
        array.append(value);
    }
    arg.endArray();
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonObject &object)
{
    Core::Types::ObjectBuilder members;
    QDBusArgument::ElementType type = QDBusArgument::UnknownType; // all values have the same
    arg.beginMap();
    while (!arg.atEnd()) {
        QString key;
        QJsonValue value;
        arg.beginMapEntry();
        arg >> key;
        if (type == QDBusArgument::UnknownType)
            type = arg.currentType();
        readValue(arg, type, value);
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

QDBusArgument &operator<<(QDBusArgument &arg, const BusObject &object)
{
    arg.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (const BusMember &member : object.members) {
        arg.beginMapEntry();
        arg << member.key << member.value;
        arg.endMapEntry();
    }
    arg.endMap();
    return arg;
}

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

    qDBusRegisterMetaType<QJsonArray>();
    qDBusRegisterMetaType<QJsonObject>();
    qDBusRegisterMetaType<QJsonValue>();
    registerWriteOnly<BusObject>();
    registerWriteOnly<QVector<BusObject>>();
    qDBusRegisterMetaType<QList<QVariantMap>>(); // arrays of objects in hints

    registered = true;
}

namespace {

/// The value without what \a isSendable refuses, at any depth that a message can have; invalid if that is all of it.
template<typename Predicate>
QVariant filtered(const QVariant &value, Predicate isSendable, int levels = MaxLevels)
{
    if (!isSendable(value))
        return {};
    if (levels == 0)
        return value;
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList list;
        const QVariantList elements = value.toList();
        for (const QVariant &element : elements) {
            const QVariant kept = filtered(element, isSendable, levels - 1);
            if (kept.isValid())
                list.append(kept);
        }
        return list;
    }
    if (value.userType() == QMetaType::QVariantMap || value.userType() == QMetaType::QVariantHash) {
        QVariantMap map;
        const QVariantMap members = value.toMap();
        for (auto member = members.begin(); member != members.end(); ++member) {
            const QVariant kept = filtered(member.value(), isSendable, levels - 1);
            if (kept.isValid())
                map.insert(map.constEnd(), member.key(), kept);
        }
        return map;
    }
    if (value.userType() == qMetaTypeId<QList<QVariantMap>>()) {
        QList<QVariantMap> maps;
        const auto elements = value.value<QList<QVariantMap>>();
        maps.reserve(elements.size());
        for (const QVariantMap &element : elements)
            maps.append(filtered(element, isSendable, levels - 1).toMap());
        return QVariant::fromValue(maps);
    }
    if (value.userType() == qMetaTypeId<QDBusVariant>()) {
        const QVariant kept = filtered(value.value<QDBusVariant>().variant(), isSendable, levels - 1);
        return kept.isValid() ? QVariant::fromValue(QDBusVariant(kept)) : QVariant();
    }
    return value;
}

} // namespace

bool isArgument(const QVariant &value, const char *signature)
{
    return value.userType() == qMetaTypeId<QDBusArgument>()
        && value.value<QDBusArgument>().currentSignature() == QLatin1String(signature);
}

void logOmissions(const Omissions &omissions)
{
    for (const char *const text : omissions)
        qWarning() << text;
}

QVariant withoutNulls(const QVariant &value, Omissions *omissions)
{
    return filtered(value, [omissions](const QVariant &part) {
        if (part.userType() == QMetaType::Nullptr)
            omissions->append(Core::Types::UnknownType);
        return part.userType() != QMetaType::Nullptr && part.isValid();
    });
}

QVariant withoutUnsendable(const QVariant &value)
{
    return filtered(value, [](const QVariant &part) {
        const bool isSendable = part.isValid() && QDBusMetaType::typeToSignature(part.userType());
        if (!isSendable)
            qWarning() << "Value without a form on D-Bus:" << part;
        return isSendable;
    });
}

} // namespace Corvane
