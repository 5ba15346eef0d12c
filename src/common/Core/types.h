// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QPair>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <optional>

/// JSON as variants. Unlike in Qt's own conversion numbers are doubles always, and an array of one type is a typed
/// list.
namespace Core::Types {

// What is warned of where a value is left out.
constexpr const char *UnknownType = "Unknown JSON value type";
constexpr const char *ArrayOfArrays = "JSON array of arrays are not supported";

/// The type that all elements of a non-empty array share; none if they differ.
std::optional<QJsonValue::Type> commonType(const QJsonArray &array);

/// The elements, all of which are of this type, a scalar one, as QList<bool>, QList<double> or QStringList.
QVariant scalarList(const QJsonArray &array, QJsonValue::Type type);

/**
 * The array as QList<bool>, QList<double>, QStringList or QList<QVariantMap>; if it is empty or mixed, as QVariantList.
 * What is inside its elements is converted as by plainVariant(). An array of arrays or of nulls gives an invalid
 * variant and a warning.
 */
QVariant jsonArrayToVariant(const QJsonArray &array);

/// The object as a map. Arrays in it, at any depth of objects, are converted as by jsonArrayToVariant().
QVariantMap jsonObjectToVariantMap(const QJsonObject &object);

/// The value as bool, double, QString, QVariantList, QVariantMap or, for null, nullptr: QJsonValue::toVariant(), but
/// integral numbers are doubles too.
QVariant plainVariant(const QJsonValue &value);

/// Makes an object of members in any order, in time n log n; inserting them one by one would be quadratic. Of members
/// with the same key the last one counts.
class ObjectBuilder
{
public:
    explicit ObjectBuilder(const QJsonObject &object = {}) : m_object(object) { } ///< Adds to the members of \a object.

    void insert(const QString &key, const QJsonValue &value);
    /// All that was inserted. The builder is not used again.
    QJsonObject take();

private:
    QJsonObject m_object;
    QString m_lastKey; ///< Null while there are too few members for their order to matter.
    QVector<QPair<QString, QJsonValue>> m_rest; ///< From the first on that is out of order.
};

} // namespace Core::Types
