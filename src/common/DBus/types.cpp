// SPDX-License-Identifier: BSD-3-Clause
#include "types.h"

#include <Core/types.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusVariant>

namespace {

QVariant busVariant(const QJsonArray &array)
{
    if (array.isEmpty() || Core::Types::commonType(array) != QJsonValue::Object)
        return Corvane::withoutNulls(Core::Types::jsonArrayToVariant(array));

    QVector<QJsonObject> objects;
    objects.reserve(array.size());
    for (const auto &element : array)
        objects.append(element.toObject());
    return QVariant::fromValue(objects);
}

/// What the value travels as; invalid, with a warning, if the bus has nothing for it. Objects stay as they are: the
/// marshaller calls the operator for them and writes straight into the message.
QVariant busVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return value.toBool();
    case QJsonValue::Double:
        return value.toDouble();
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Array:
        return busVariant(value.toArray());
    case QJsonValue::Object:
        return QVariant::fromValue(value.toObject());
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        break;
    }
    qWarning() << "Unknown JSON value type";
    return {};
}

/// Reads what is next in \a arg; false if that cannot be read and is still there.
bool readValue(const QDBusArgument &arg, QJsonValue &value);

QJsonValue jsonValue(QVariant variant)
{
    while (variant.userType() == qMetaTypeId<QDBusVariant>())
        variant = variant.value<QDBusVariant>().variant();

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
        readValue(variant.value<QDBusArgument>(), value);
        return value;
    }
    return QJsonValue::fromVariant(variant);
}

bool readValue(const QDBusArgument &arg, QJsonValue &value)
{
    switch (arg.currentType()) {
    case QDBusArgument::BasicType:
    case QDBusArgument::VariantType:
        value = jsonValue(arg.asVariant());
        return true;
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
    if (value.isNull()) { // gives QtDBus the signature of QJsonValue, which it asks of a default-made value
        arg << QDBusVariant(QVariant());
        return arg;
    }
    const QVariant variant = busVariant(value);
    if (variant.isValid())
        arg.appendVariant(variant);
    return arg;
}

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonArray &array)
{
    const QVariant variant = busVariant(array);
    if (variant.isValid())
        arg.appendVariant(variant);
    return arg;
}

QDBusArgument &operator<<(QDBusArgument &arg, const QJsonObject &object)
{
    Corvane::registerRecordTypes(); // the marshaller has to know what is nested in here
    arg.beginMap(QMetaType::QString, qMetaTypeId<QDBusVariant>());
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QVariant variant = busVariant(member.value());
        if (!variant.isValid())
            continue;
        arg.beginMapEntry();
        arg << member.key() << QDBusVariant(variant);
        arg.endMapEntry();
    }
    arg.endMap();
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonValue &value)
{
    readValue(arg, value);
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonArray &array)
{
    array = {};
    arg.beginArray();
    while (!arg.atEnd()) {
        QJsonValue value;
        if (!readValue(arg, value))
            break; // it is still there, and would be for ever
        array.append(value);
    }
    arg.endArray();
    return arg;
}

const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonObject &object)
{
    Core::Types::Members members;
    arg.beginMap();
    while (!arg.atEnd()) {
        QString key;
        QJsonValue value;
        arg.beginMapEntry();
        arg >> key;
        readValue(arg, value);
        arg.endMapEntry();
        members.append({key, value});
    }
    arg.endMap();
    object = Core::Types::makeObject(std::move(members));
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

    qDBusRegisterMetaType<QJsonArray>();
    qDBusRegisterMetaType<QJsonObject>();
    qDBusRegisterMetaType<QJsonValue>();
    qDBusRegisterMetaType<QVector<QJsonObject>>(); // what arrays of objects travel as
    qDBusRegisterMetaType<QList<QVariantMap>>(); // the same in hints

    registered = true;
}

namespace {

/// The value without what \a isSendable refuses, at any depth; invalid if that is all of it.
template<typename Predicate>
QVariant filtered(const QVariant &value, Predicate isSendable)
{
    if (!isSendable(value))
        return {};
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList list;
        const QVariantList elements = value.toList();
        for (const QVariant &element : elements) {
            const QVariant kept = filtered(element, isSendable);
            if (kept.isValid())
                list.append(kept);
        }
        return list;
    }
    if (value.userType() == QMetaType::QVariantMap || value.userType() == QMetaType::QVariantHash) {
        QVariantMap map;
        const QVariantMap members = value.toMap();
        for (auto member = members.begin(); member != members.end(); ++member) {
            const QVariant kept = filtered(member.value(), isSendable);
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
            maps.append(filtered(element, isSendable).toMap());
        return QVariant::fromValue(maps);
    }
    if (value.userType() == qMetaTypeId<QDBusVariant>()) {
        const QVariant kept = filtered(value.value<QDBusVariant>().variant(), isSendable);
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

QVariant withoutNulls(const QVariant &value)
{
    return filtered(value, [](const QVariant &part) {
        if (part.userType() == QMetaType::Nullptr)
            qWarning() << "Unknown JSON value type";
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
