// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "types.h"

#include <Core/types.h>

#include <QtCore/QStringList>

// File descriptors that a message may carry: a stock session bus cuts off who sends more.
#ifndef CORVANE_MAX_DESCRIPTORS
#define CORVANE_MAX_DESCRIPTORS 16
#endif

namespace Corvane {

constexpr int MaxLevels = 64; // containers within each other in a message

/// The writer in whose name a null that is left out is logged.
constexpr const char *ValueWriter = "QDBusArgument& operator<<(QDBusArgument&, const QJsonValue&)";
constexpr Omission NullLeftOut{Core::Types::UnknownType, ValueWriter};

/**
 * Measures the body of a message before it is made.
 *
 * The bus takes a message that breaks its limits for an attack and cuts off the sender, for the rest of the process's
 * life; beyond some of them libdbus itself dies. So arguments are measured first, in any order: they are counted as
 * they will be marshalled. What is left out there, since the bus has no form for it, is passed over.
 *
 * JSON is measured and made ready to be marshalled in one walk, the longest part of which is to take it apart.
 */
class MessageMeter
{
public:
    void add(const QString &text);
    void add(const QStringList &texts);
    /// The map that Core::Types makes of the object.
    void add(const QJsonObject &object);
    /// Makes of the object what is to be sent. Nulls, and arrays of arrays or of nulls, are left out.
    /// Of use only if there is no problem.
    BusObject addConverted(const QJsonObject &object);
    QVariant addConverted(const QJsonValue &value);
    /// A map of what Core::Types and addConverted() make of JSON, of what QtDBus marshals by itself, of descriptors,
    /// and of values as they came from the bus. Values that somebody else marshals are taken to be small.
    void add(const QVariantMap &map);

    /// Why the bus would not let the message pass, for people; empty if it would.
    QString problem() const;

    /// What was left out in converting, to be logged once the message is sent.
    const Omissions &omissions() const { return m_omissions; }

    /// The value as in a BusMember, whatever its size; invalid if the bus has nothing for it. Logs what is left out,
    /// which is also what is nested deeper than a message can be.
    static QVariant converted(const QJsonValue &value);

private:
    QVariant addConverted(const QJsonArray &array);

    void addContent(const QJsonValue &value);
    void addPlainContent(const QJsonValue &value);
    void addPlainMembers(const QJsonObject &object);
    void addContent(const QVariant &value);
    void add(const BusObject &object);
    void add(const QDBusArgument &arg);
    template<typename... Elements>
    bool addFixedLists(const QVariant &value);

    template<typename Map, typename AddContent>
    void addMap(const Map &map, AddContent addContent);
    template<typename List, typename AddElement>
    void addList(const List &list, int alignment, int levels, AddElement addElement);
    void addFixedArray(int count, int elementSize);
    void addDescriptors(int count);

    void align(int alignment);
    void addFixed(int size);
    void addSignature(int length);
    template<typename Add>
    void addNested(int levels, Add add);
    template<typename AddElements>
    void addBody(int alignment, AddElements addElements);
    void refuse(const QString &problem);

    bool m_hasLimits = true;
    qint64 m_size = 0;
    int m_level = 0;
    int m_descriptors = 0;
    QString m_problem;
    Omissions m_omissions;
};

} // namespace Corvane
