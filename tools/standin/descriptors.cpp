// SPDX-License-Identifier: BSD-3-Clause
#include "descriptors.h"

#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusUnixFileDescriptor>

#include <algorithm>

namespace {

bool visit(const QDBusArgument &argument)
{
    bool found = false;
    switch (argument.currentType()) {
    case QDBusArgument::BasicType:
        return holdsDescriptors(argument.asVariant());
    case QDBusArgument::VariantType:
        return holdsDescriptors(qdbus_cast<QDBusVariant>(argument).variant());
    case QDBusArgument::ArrayType:
        argument.beginArray();
        while (!argument.atEnd())
            found |= visit(argument);
        argument.endArray();
        return found;
    case QDBusArgument::StructureType:
        argument.beginStructure();
        while (!argument.atEnd())
            found |= visit(argument);
        argument.endStructure();
        return found;
    case QDBusArgument::MapType:
        argument.beginMap();
        while (!argument.atEnd()) {
            argument.beginMapEntry();
            found |= visit(argument);
            found |= visit(argument);
            argument.endMapEntry();
        }
        argument.endMap();
        return found;
    case QDBusArgument::MapEntryType:
    case QDBusArgument::UnknownType:
        break;
    }
    return found;
}

} // namespace

bool holdsDescriptors(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusArgument>())
        return visit(value.value<QDBusArgument>());
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return holdsDescriptors(value.value<QDBusVariant>().variant());
    if (value.userType() == QMetaType::QVariantMap || value.userType() == QMetaType::QVariantList) {
        const QVariantList parts = value.userType() == QMetaType::QVariantMap ? value.toMap().values() : value.toList();
        return std::any_of(parts.begin(), parts.end(), holdsDescriptors);
    }
    return value.userType() == qMetaTypeId<QDBusUnixFileDescriptor>();
}
