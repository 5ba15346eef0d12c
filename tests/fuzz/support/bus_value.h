// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>
#include <QtCore/QStringList>

#include <systemd/sd-bus.h>

#include <cstdint>
#include <vector>

namespace Fuzz {

/// A D-Bus value of any type. Containers have a signature and parts; a variant has one part.
struct BusValue
{
    QByteArray signature;
    std::vector<BusValue> parts;
    std::uint64_t number = 0; ///< The bits of a number; 0 or 1 for a boolean.
    QByteArray text; ///< The bytes of a string, object path or signature.
};

/**
 * Reads D-Bus values from the bytes of an input. Every input is valid, and most inputs are readable text:
 *
 * A type or a signature is written as its signature, and a number as its bytes. A string or an object path ends at ';';
 * the path has no first slash. An array or dictionary is a digit, the number of its elements, and then the elements. A
 * variant is a type and then a value.
 */
class BusValueReader
{
public:
    BusValueReader(const std::uint8_t *data, std::size_t size) : m_data(data), m_end(data + size) { }

    bool atEnd() const { return m_data == m_end; }
    char next() { return atEnd() ? '\0' : char(*m_data++); }
    bool skip(char c);

    QByteArray text();
    QByteArray type() { return type(0); }
    BusValue value(const QByteArray &signature, int level = 0);

    /// Returns the number of file descriptors in the values read so far.
    int descriptors() const { return m_descriptors; }

private:
    QByteArray type(int level);
    QByteArray basicType(char c);

    const std::uint8_t *m_data;
    const std::uint8_t *const m_end;
    int m_descriptors = 0;
};

/// Returns the single complete types in a signature.
std::vector<QByteArray> completeTypes(const QByteArray &signature);

void append(sd_bus_message *message, const BusValue &value);

/// Returns the value as JSON, and adds the warnings about values that are not read.
QJsonValue jsonOf(const BusValue &value, QStringList *warnings);

/// Returns a number of any D-Bus type.
double numberOf(const BusValue &value);

} // namespace Fuzz
