// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "json.h"

#include <QtCore/QStringList>
#include <QtCore/QVariant>

// The maximum number of file descriptors in a message. A stock session bus disconnects the sender of more.
#ifndef CORVANE_MAX_DESCRIPTORS
#define CORVANE_MAX_DESCRIPTORS 16
#endif

namespace Corvane {

/**
 * Measures the body of a message before it is marshalled.
 *
 * The bus disconnects the sender of a message over its limits, and the process cannot connect again. Over some limits,
 * libdbus aborts the process. The meter therefore measures the arguments, in any order, as QtDBus will marshal them.
 */
class MessageMeter
{
public:
    void add(const QString &text);
    void add(const QStringList &texts);
    /// Adds a map. Its values have a type that QtDBus marshals or a type of BusMember::value, or are unread arguments.
    /// The strings, arrays and variants inside a structure that the application or Qt marshals are not measured.
    void add(const QVariantMap &map);
    void add(const BusObject &object);
    /// Adds a problem if the conversion has omitted a value that is nested too deep.
    void add(const Omissions &omissions);

    /// Returns the reason why the bus would refuse the message, in English, or an empty text if it would not.
    QString problem() const;
    qint64 bytes() const { return m_size; }
    int descriptors() const { return m_descriptors; }

private:
    void add(const QVariant &content);
    void addNext(const QDBusArgument &arg);
    void addValue(const QVariant &value, const char *signature);
    void addContainer(const QVariant &container, const char *signature);
    const char *addUnread(const char *signature);
    template<typename List>
    void addElements(const List &list, int alignment, int levels = 0);
    void addMember(const QString &key, const QVariant &content);
    void addDescriptors(int count);
    void addFixedArray(int count, char code);
    void addFixed(int size);
    void addSignature(int length);
    template<typename AddElements>
    void addArray(int alignment, AddElements addElements);
    template<typename Add>
    void nest(int levels, Add add);
    void align(int alignment);
    void refuse(const QString &problem);

    qint64 m_size = 0;
    int m_level = 0;
    int m_descriptors = 0;
    QString m_problem;
};

} // namespace Corvane
