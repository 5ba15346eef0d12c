// SPDX-License-Identifier: BSD-3-Clause
#include "sdbus.h"

#include "kind.h"

#include <cstring>

namespace SdBusPeer {

namespace {

void append(sd_bus_message *message, const QString &text)
{
    sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, text.toUtf8().constData());
}

void append(sd_bus_message *message, const QJsonValue &value);

void appendVariant(sd_bus_message *message, const QJsonValue &value)
{
    sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, signatureOf(value).constData());
    append(message, value);
    sd_bus_message_close_container(message);
}

void append(sd_bus_message *message, const QJsonArray &array)
{
    const QJsonValue::Type kind = kindOf(array);
    if (kind == QJsonValue::Double) {
        const QVector<double> numbers = numbersOf(array);
        sd_bus_message_append_array(message, SD_BUS_TYPE_DOUBLE, numbers.constData(),
                                    size_t(numbers.size()) * sizeof(double));
        return;
    }
    sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, elementSignature(kind));
    for (const auto &element : array) {
        if (kind == QJsonValue::Undefined || kind == QJsonValue::Array)
            appendVariant(message, element);
        else
            append(message, element);
    }
    sd_bus_message_close_container(message);
}

void append(sd_bus_message *message, const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool: {
        const int truth = value.toBool();
        sd_bus_message_append_basic(message, SD_BUS_TYPE_BOOLEAN, &truth);
        break;
    }
    case QJsonValue::Double: {
        const double number = value.toDouble();
        sd_bus_message_append_basic(message, SD_BUS_TYPE_DOUBLE, &number);
        break;
    }
    case QJsonValue::String:
        append(message, value.toString());
        break;
    case QJsonValue::Array:
        append(message, value.toArray());
        break;
    case QJsonValue::Object:
        SdBusPeer::append(message, value.toObject());
        break;
    default:
        qFatal("There are no nulls in the payloads");
    }
}

QJsonValue readValue(sd_bus_message *message);

QJsonArray readArray(sd_bus_message *message, const char *elements)
{
    QJsonArray array;
    if (std::strcmp(elements, "d") == 0) {
        const void *data = nullptr;
        size_t size = 0;
        sd_bus_message_read_array(message, SD_BUS_TYPE_DOUBLE, &data, &size);
        const auto *numbers = static_cast<const double *>(data);
        for (size_t i = 0; i < size / sizeof(double); ++i)
            array.append(numbers[i]);
        return array;
    }
    sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, elements);
    while (sd_bus_message_at_end(message, false) == 0)
        array.append(readValue(message));
    sd_bus_message_exit_container(message);
    return array;
}

QJsonValue readValue(sd_bus_message *message)
{
    char type = 0;
    const char *contents = nullptr;
    sd_bus_message_peek_type(message, &type, &contents);
    switch (type) {
    case SD_BUS_TYPE_BOOLEAN: {
        int truth = 0;
        sd_bus_message_read_basic(message, type, &truth);
        return truth != 0;
    }
    case SD_BUS_TYPE_DOUBLE: {
        double number = 0;
        sd_bus_message_read_basic(message, type, &number);
        return number;
    }
    case SD_BUS_TYPE_STRING: {
        const char *text = nullptr;
        sd_bus_message_read_basic(message, type, &text);
        return QString::fromUtf8(text);
    }
    case SD_BUS_TYPE_VARIANT: {
        sd_bus_message_enter_container(message, type, contents);
        const QJsonValue value = readValue(message);
        sd_bus_message_exit_container(message);
        return value;
    }
    case SD_BUS_TYPE_ARRAY:
        if (contents[0] == SD_BUS_TYPE_DICT_ENTRY_BEGIN)
            return readObject(message);
        return readArray(message, contents);
    default:
        qFatal("There are no other types in the payloads");
    }
}

} // namespace

void append(sd_bus_message *message, const QJsonObject &object)
{
    sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
    for (auto member = object.begin(); member != object.end(); ++member) {
        sd_bus_message_open_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv");
        append(message, member.key());
        appendVariant(message, member.value());
        sd_bus_message_close_container(message);
    }
    sd_bus_message_close_container(message);
}

QJsonObject readObject(sd_bus_message *message)
{
    QJsonObject object;
    sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
    while (sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
        const char *key = nullptr;
        sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &key);
        const QString name = QString::fromUtf8(key);
        object.insert(name, readValue(message));
        sd_bus_message_exit_container(message);
    }
    sd_bus_message_exit_container(message);
    return object;
}

} // namespace SdBusPeer
