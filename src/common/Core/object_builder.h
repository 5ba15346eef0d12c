// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>
#include <QtCore/QJsonValue>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace Core {

/// Builds an object from members in any order, in n log n time. QJsonObject::insert() would need quadratic time. If a
/// key is repeated, the object contains the last value.
class ObjectBuilder
{
public:
    /// Adds to the members of \a object.
    explicit ObjectBuilder(const QJsonObject &object = {}) : m_object(object) { }

    void insert(const QString &key, const QJsonValue &value);
    /// Returns the object with all inserted members. Do not use the builder afterwards.
    QJsonObject take();

private:
    QJsonObject m_object;
    QString m_lastKey; ///< Null while the object has few members; they are inserted directly.
    QVector<QPair<QString, QJsonValue>> m_rest; ///< All members from the first one that is out of order.
};

} // namespace Core
