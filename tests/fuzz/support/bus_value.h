// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonValue>
#include <QtCore/QStringList>

#include <systemd/sd-bus.h>

#include <cstdint>
#include <vector>

namespace Fuzz {

/// A D-Bus value of any type. Containers have their signature and what is in them; a variant is a container of one.
struct BusValue
{
    QByteArray signature;
    std::vector<BusValue> parts;
    std::uint64_t number = 0; ///< of a number, its bits; 0 or 1 for a boolean
    QByteArray text; ///< of a text, path or signature
};

/**
 * Makes values of bytes, of which all have a meaning and many can be read:
 *
 * A type is its signature. A number is its bytes. A text ends at ';', a path as well, without the first slash; a
 * signature is one. An array or dictionary is a digit for how many, and then these. A variant is the type and then the
 * value.
 */
class BusValueReader
{
public:
    BusValueReader(const std::uint8_t *data, std::size_t size) : m_data(data), m_end(data + size) { }

    bool atEnd() const { return m_data == m_end; }
    char next() { return atEnd() ? '\0' : char(*m_data++); }
    bool takes(char c);

    QByteArray text();
    QByteArray type() { return type(0); }
    BusValue value(const QByteArray &signature, int level = 0);

    /// How many descriptors are in what has been read so far.
    int descriptors() const { return m_descriptors; }

private:
    QByteArray type(int level);
    QByteArray basicType(char c);

    const std::uint8_t *m_data;
    const std::uint8_t *const m_end;
    int m_descriptors = 0;
};

/// The complete types in a signature.
std::vector<QByteArray> completeTypes(const QByteArray &signature);

void append(sd_bus_message *message, const BusValue &value);

/// Returns the value as JSON, and adds the warnings about values that are not read.
QJsonValue jsonOf(const BusValue &value, QStringList *warnings);

/// A number of any type; others are 0.
double numberOf(const BusValue &value);

} // namespace Fuzz
