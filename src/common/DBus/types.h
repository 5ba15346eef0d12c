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
#include <QtDBus/QDBusVariant>

/**
 * JSON on the bus.
 *
 * A boolean is written as b, a number as d, a string as s, an object as a{sv}, an array of one of these as ab, ad, as
 * or aa{sv}, an empty or mixed one as av. Inside a mixed array all arrays are av. Nulls, and arrays of arrays or of
 * nulls, have no form on the bus: they are left out of the object or array that holds them, with a warning.
 *
 * All basic types but paths, signatures and descriptors are read, a variant as what it holds, an array of bytes as a
 * string up to its first zero, or as null if it is empty. What cannot be read is null; structures give a warning, and
 * an array of them is empty. The readers add to the array or object that they are given. A value, too, stays as it is
 * where there is a structure.
 *
 * Within a QVariant, Qt fixes the signature of a type before it sees the value: a QJsonArray is av there, whatever it
 * holds, and a message with a QJsonValue is not sent.
 */
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonValue &value);
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonArray &array);
QDBusArgument &operator<<(QDBusArgument &arg, const QJsonObject &object);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonValue &value);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonArray &array);
const QDBusArgument &operator>>(const QDBusArgument &arg, QJsonObject &object);

namespace Corvane {

struct BusMember
{
    QString key;
    QDBusVariant value; ///< bool, double, QString, a list of one of these, BusObject, QVector<BusObject>, QVariantList
};

/// A JSON object as it is written: in the types of the bus, and without what has none. MessageMeter makes it.
struct BusObject
{
    QVector<BusMember> members;
};

enum ApplicationState : quint32;

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

QDBusArgument &operator<<(QDBusArgument &arg, const BusObject &object);
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

/// Makes the types above known to Qt and to QtDBus, once for the process. Not safe against a concurrent first call.
void registerRecordTypes();

/// Whether the value came from the bus, not read yet, with this signature. The demarshaller does not survive reading it
/// as anything else.
bool isArgument(const QVariant &value, const char *signature);

/// Why a value is left out of a message: the text of the warning, and the function in whose name it is logged.
struct Omission
{
    const char *text;
    const char *function;
};
using Omissions = QVector<Omission>;

void logOmissions(const Omissions &omissions);

/// The value of a map that is sent, or why there is none: nulls in it are left out at any depth, and added to
/// \a omissions. Invalid variants are left out in silence; what made them has logged why.
QVariant withoutNulls(const QVariant &value, Omissions *omissions);

/// The same for a map that may hold anything: whatever has no form on the bus is left out, with a warning at once. JSON
/// is converted, unless the bus would not let it pass.
QVariant withoutUnsendable(const QVariant &value);

} // namespace Corvane

Q_DECLARE_TYPEINFO(Corvane::BusMember, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Corvane::BusObject)
Q_DECLARE_METATYPE(Corvane::TaskState)
Q_DECLARE_METATYPE(Corvane::AvailableTask)
Q_DECLARE_METATYPE(Corvane::ActiveTask)
Q_DECLARE_METATYPE(Corvane::RunningApplication)
Q_DECLARE_METATYPE(Corvane::RunningService)
