// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtDBus/QDBusArgument>

/**
 * JSON on the bus.
 *
 * The writers write the types that DBus/json.h describes, and log a warning about each omitted value.
 *
 * The readers read all basic types except object paths, signatures and file descriptors. A variant becomes its content.
 * An array of bytes becomes a string that ends at the first NUL, or null if this string is empty. Other values become
 * null. A structure causes a warning, and an array of structures becomes an empty array. The readers keep the existing
 * members or elements of the target. For a structure, the reader of a QJsonValue does not change its target.
 *
 * Inside a QVariant, the signature depends only on the type, not on the value: a QJsonArray is always av, and a message
 * with a QJsonValue is not sent.
 */
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonValue &value);
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonArray &array);
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonObject &object);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonValue &value);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonArray &array);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonObject &object);

namespace Corvane {

enum ApplicationState : quint32;

// The records of the service. The library itself reads only TaskState. The other records are registered as well, so
// that applications and later interfaces can receive them.

struct TaskState // (sua{sv})
{
    QString taskId;
    quint32 state = 0;
    QVariantMap properties;
};

struct AvailableTask // (sa{sv})
{
    QString taskId;
    QVariantMap properties;
};

struct ActiveTask // (sia{sv})
{
    QString taskId;
    qint32 processId = 0;
    QVariantMap properties;
};

struct RunningApplication // (siuua{sv})
{
    QString instanceId;
    qint32 processId = 0;
    ApplicationState state = ApplicationState(0);
    ApplicationState previousState = ApplicationState(0);
    QVariantMap properties;
};

struct RunningService // (ssiua{sv})
{
    QString serviceId;
    QString instanceId;
    qint32 processId = 0;
    ApplicationState state = ApplicationState(0);
    QVariantMap properties;
};

QDBusArgument &operator<<(QDBusArgument &arg, const TaskState &record);
QDBusArgument &operator<<(QDBusArgument &arg, const AvailableTask &record);
QDBusArgument &operator<<(QDBusArgument &arg, const ActiveTask &record);
QDBusArgument &operator<<(QDBusArgument &arg, const RunningApplication &record);
QDBusArgument &operator<<(QDBusArgument &arg, const RunningService &record);
const QDBusArgument &operator>>(const QDBusArgument &arg, TaskState &record);
const QDBusArgument &operator>>(const QDBusArgument &arg, AvailableTask &record);
const QDBusArgument &operator>>(const QDBusArgument &arg, ActiveTask &record);
const QDBusArgument &operator>>(const QDBusArgument &arg, RunningApplication &record);
const QDBusArgument &operator>>(const QDBusArgument &arg, RunningService &record);

/// Registers the types above, and JSON, with Qt and QtDBus, once for the process. Not safe against a concurrent first
/// call.
void registerRecordTypes();

} // namespace Corvane

Q_DECLARE_METATYPE(Corvane::TaskState)
Q_DECLARE_METATYPE(Corvane::AvailableTask)
Q_DECLARE_METATYPE(Corvane::ActiveTask)
Q_DECLARE_METATYPE(Corvane::RunningApplication)
Q_DECLARE_METATYPE(Corvane::RunningService)
