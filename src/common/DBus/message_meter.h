// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

// File descriptors that a message may carry: a stock session bus cuts off who sends more.
#ifndef CORVANE_MAX_DESCRIPTORS
#define CORVANE_MAX_DESCRIPTORS 16
#endif

namespace Corvane {

/**
 * Measures the body of a message before it is made.
 *
 * The bus takes a message that breaks its limits for an attack and cuts off the sender, for the rest of the process's
 * life; beyond some of them libdbus itself dies. So arguments are measured first: added in their order, they are
 * counted as they will be marshalled. What is left out there, since the bus has no form for it, is passed over.
 */
class MessageMeter
{
public:
    void add(const QString &text);
    void add(const QStringList &texts);
    void add(const QJsonObject &object);
    /// A map of what Core::Types makes of JSON, of descriptors, and of what describes a task. Other values are taken to
    /// be small.
    void add(const QVariantMap &map);

    /// Why the bus would not let the message pass, for people; empty if it would.
    QString problem() const { return m_problem; }

private:
    void addArray(const QJsonArray &array);
    void addContent(const QJsonValue &value);
    void addPlainContent(const QJsonValue &value);
    void addContent(const QVariant &value);

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

    qint64 m_size = 0;
    int m_level = 0;
    int m_descriptors = 0;
    QString m_problem;
};

} // namespace Corvane
