// SPDX-License-Identifier: BSD-3-Clause
#include "gdbus.h"

#include "kind.h"

namespace GDBusPeer {

namespace {

GVariant *toVariant(const QString &text)
{
    return g_variant_new_string(text.toUtf8().constData());
}

GVariant *toVariant(const QJsonValue &value);

GVariant *toVariant(const QJsonArray &array)
{
    const QJsonValue::Type kind = kindOf(array);
    if (kind == QJsonValue::Double) {
        const QVector<double> numbers = numbersOf(array);
        return g_variant_new_fixed_array(G_VARIANT_TYPE_DOUBLE, numbers.constData(), gsize(numbers.size()),
                                         sizeof(double));
    }
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE((QByteArrayLiteral("a") + elementSignature(kind)).constData()));
    for (const auto &element : array) {
        GVariant *const variant = toVariant(element);
        const bool isBoxed = kind == QJsonValue::Undefined || kind == QJsonValue::Array;
        g_variant_builder_add_value(&builder, isBoxed ? g_variant_new_variant(variant) : variant);
    }
    return g_variant_builder_end(&builder);
}

GVariant *toVariant(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Bool:
        return g_variant_new_boolean(value.toBool());
    case QJsonValue::Double:
        return g_variant_new_double(value.toDouble());
    case QJsonValue::String:
        return toVariant(value.toString());
    case QJsonValue::Array:
        return toVariant(value.toArray());
    case QJsonValue::Object:
        return GDBusPeer::toVariant(value.toObject());
    default:
        qFatal("There are no nulls in the payloads");
    }
}

QJsonValue toValue(GVariant *variant);

template<typename Add>
void forEachChild(GVariant *container, Add add)
{
    GVariantIter iter;
    g_variant_iter_init(&iter, container);
    while (GVariant *child = g_variant_iter_next_value(&iter)) {
        add(child);
        g_variant_unref(child);
    }
}

QJsonArray toArray(GVariant *variant)
{
    QJsonArray array;
    if (g_variant_is_of_type(variant, G_VARIANT_TYPE("ad"))) {
        gsize size = 0;
        const auto *numbers = static_cast<const double *>(g_variant_get_fixed_array(variant, &size, sizeof(double)));
        for (gsize i = 0; i < size; ++i)
            array.append(numbers[i]);
        return array;
    }
    forEachChild(variant, [&array](GVariant *element) { array.append(toValue(element)); });
    return array;
}

QJsonValue toValue(GVariant *variant)
{
    switch (g_variant_classify(variant)) {
    case G_VARIANT_CLASS_BOOLEAN:
        return bool(g_variant_get_boolean(variant));
    case G_VARIANT_CLASS_DOUBLE:
        return g_variant_get_double(variant);
    case G_VARIANT_CLASS_STRING: {
        gsize size = 0;
        const char *text = g_variant_get_string(variant, &size);
        return QString::fromUtf8(text, int(size));
    }
    case G_VARIANT_CLASS_VARIANT: {
        GVariant *const content = g_variant_get_variant(variant);
        const QJsonValue value = toValue(content);
        g_variant_unref(content);
        return value;
    }
    case G_VARIANT_CLASS_ARRAY:
        if (g_variant_is_of_type(variant, G_VARIANT_TYPE_VARDICT))
            return toObject(variant);
        return toArray(variant);
    default:
        qFatal("There are no other types in the payloads");
    }
}

} // namespace

GVariant *toVariant(const QJsonObject &object)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for (auto member = object.begin(); member != object.end(); ++member)
        g_variant_builder_add_value(
            &builder,
            g_variant_new_dict_entry(toVariant(member.key()), g_variant_new_variant(toVariant(member.value()))));
    return g_variant_builder_end(&builder);
}

QJsonObject toObject(GVariant *dictionary)
{
    QJsonObject object;
    GVariantIter iter;
    const char *key = nullptr;
    GVariant *value = nullptr;
    g_variant_iter_init(&iter, dictionary);
    while (g_variant_iter_loop(&iter, "{&sv}", &key, &value))
        object.insert(QString::fromUtf8(key), toValue(value));
    return object;
}

} // namespace GDBusPeer
