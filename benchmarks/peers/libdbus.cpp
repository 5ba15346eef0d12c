// SPDX-License-Identifier: BSD-3-Clause
#include "libdbus.h"

#include "kind.h"

namespace LibdbusPeer {

namespace {

void append(DBusMessageIter *iter, const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    const char *data = utf8.constData();
    dbus_message_iter_append_basic(iter, DBUS_TYPE_STRING, &data);
}

void append(DBusMessageIter *iter, const QJsonValue &value);

void appendVariant(DBusMessageIter *iter, const QJsonValue &value)
{
    DBusMessageIter variant;
    dbus_message_iter_open_container(iter, DBUS_TYPE_VARIANT, signatureOf(value).constData(), &variant);
    append(&variant, value);
    dbus_message_iter_close_container(iter, &variant);
}

void append(DBusMessageIter *iter, const QJsonArray &array)
{
    const QJsonValue::Type kind = kindOf(array);
    DBusMessageIter elements;
    dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, elementSignature(kind), &elements);
    if (kind == QJsonValue::Double) {
        const QVector<double> numbers = numbersOf(array);
        const double *data = numbers.constData();
        dbus_message_iter_append_fixed_array(&elements, DBUS_TYPE_DOUBLE, &data, numbers.size());
    } else {
        for (const auto &element : array) {
            if (kind == QJsonValue::Undefined || kind == QJsonValue::Array)
                appendVariant(&elements, element);
            else
                append(&elements, element);
        }
    }
    dbus_message_iter_close_container(iter, &elements);
}

void append(DBusMessageIter *iter, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool: {
        const dbus_bool_t truth = value.toBool();
        dbus_message_iter_append_basic(iter, DBUS_TYPE_BOOLEAN, &truth);
        break;
    }
    case QJsonValue::Double: {
        const double number = value.toDouble();
        dbus_message_iter_append_basic(iter, DBUS_TYPE_DOUBLE, &number);
        break;
    }
    case QJsonValue::String:
        append(iter, value.toString());
        break;
    case QJsonValue::Array:
        append(iter, value.toArray());
        break;
    case QJsonValue::Object:
        LibdbusPeer::append(iter, value.toObject());
        break;
    default:
        qFatal("There are no nulls in the payloads");
    }
}

QJsonValue readValue(DBusMessageIter *iter)
{
    switch (dbus_message_iter_get_arg_type(iter)) {
    case DBUS_TYPE_BOOLEAN: {
        dbus_bool_t truth = FALSE;
        dbus_message_iter_get_basic(iter, &truth);
        return bool(truth);
    }
    case DBUS_TYPE_DOUBLE: {
        double number = 0;
        dbus_message_iter_get_basic(iter, &number);
        return number;
    }
    case DBUS_TYPE_STRING: {
        const char *text = nullptr;
        dbus_message_iter_get_basic(iter, &text);
        return QString::fromUtf8(text);
    }
    case DBUS_TYPE_VARIANT: {
        DBusMessageIter content;
        dbus_message_iter_recurse(iter, &content);
        return readValue(&content);
    }
    case DBUS_TYPE_ARRAY: {
        if (dbus_message_iter_get_element_type(iter) == DBUS_TYPE_DICT_ENTRY)
            return readObject(iter);
        QJsonArray array;
        DBusMessageIter elements;
        for (dbus_message_iter_recurse(iter, &elements); dbus_message_iter_get_arg_type(&elements) != DBUS_TYPE_INVALID;
             dbus_message_iter_next(&elements))
            array.append(readValue(&elements));
        return array;
    }
    default:
        qFatal("There are no other types in the payloads");
    }
}

} // namespace

void append(DBusMessageIter *iter, const QJsonObject &object)
{
    DBusMessageIter entries;
    dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &entries);
    for (auto member = object.begin(); member != object.end(); ++member) {
        DBusMessageIter entry;
        dbus_message_iter_open_container(&entries, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
        append(&entry, member.key());
        appendVariant(&entry, member.value());
        dbus_message_iter_close_container(&entries, &entry);
    }
    dbus_message_iter_close_container(iter, &entries);
}

QJsonObject readObject(DBusMessageIter *iter)
{
    QJsonObject object;
    DBusMessageIter entries;
    for (dbus_message_iter_recurse(iter, &entries); dbus_message_iter_get_arg_type(&entries) != DBUS_TYPE_INVALID;
         dbus_message_iter_next(&entries)) {
        DBusMessageIter entry;
        dbus_message_iter_recurse(&entries, &entry);
        const char *key = nullptr;
        dbus_message_iter_get_basic(&entry, &key);
        dbus_message_iter_next(&entry);
        object.insert(QString::fromUtf8(key), readValue(&entry));
    }
    return object;
}

} // namespace LibdbusPeer
