// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace Core {

/// Builds an object from members in any order, in time n log n; inserting them one by one would be quadratic. The last
/// of several members with the same key counts.
class ObjectBuilder
{
public:
    /// Adds to the members of \a object.
    explicit ObjectBuilder(const QJsonObject &object = {}) : m_object(object) { }

    void insert(const QString &key, const QJsonValue &value);
    /// Returns the object with all inserted members. The builder is not used again.
    QJsonObject take();

private:
    QJsonObject m_object;
    QString m_lastKey; ///< Null while there are too few members for their order to matter.
    QVector<QPair<QString, QJsonValue>> m_rest; ///< All members from the first one that is out of order.
};

} // namespace Core
