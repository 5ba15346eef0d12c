// SPDX-License-Identifier: BSD-3-Clause
#include "json_input.h"

#include "expect.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>
#include <limits>
#include <random>
#include <sanitizer/lsan_interface.h>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t maxSize);

namespace {

/// Makes one random change in a JSON tree.
class TreeMutator
{
public:
    explicit TreeMutator(unsigned int seed) : m_random(seed) { }

    QJsonObject changedMember(QJsonObject object)
    {
        if (object.isEmpty())
            return object;
        const auto member = object.begin() + below(object.size());
        const QJsonValue value = member.value();
        if (value.isObject())
            member.value() = changedObject(value.toObject());
        else if (value.isArray())
            member.value() = changedArray(value.toArray());
        else
            member.value() = changedLeaf(value);
        return object;
    }

private:
    QJsonValue changed(const QJsonValue &value)
    {
        switch (below(8)) {
        case 0:
            return anyValue();
        case 1:
            return wrapped(value);
        default:
            break;
        }
        if (value.isObject())
            return changedObject(value.toObject());
        if (value.isArray())
            return changedArray(value.toArray());
        return changedLeaf(value);
    }

    QJsonObject changedObject(QJsonObject object)
    {
        const int which = below(8);
        if (object.isEmpty() || which == 0) {
            object.insert(anyText(), anyValue());
            return object;
        }
        const auto member = object.begin() + below(object.size());
        const QString key = member.key();
        const QJsonValue value = member.value();
        if (which == 1) {
            object.erase(member);
        } else if (which == 2) {
            object.insert(changedText(key), value);
        } else {
            member.value() = changed(value);
        }
        return object;
    }

    QJsonArray changedArray(QJsonArray array)
    {
        const int which = below(8);
        if (array.isEmpty() || which == 0) {
            array.insert(below(array.size() + 1), anyValue());
            return array;
        }
        const int index = below(array.size());
        const QJsonValue value = array.at(index);
        if (which == 1)
            array.removeAt(index);
        else if (which == 2)
            array.insert(index, value);
        else
            array[index] = changed(value);
        return array;
    }

    QJsonValue changedLeaf(const QJsonValue &value)
    {
        if (value.isString())
            return changedText(value.toString());
        return value.isDouble() ? anyNumber() : anyValue();
    }

    QJsonValue wrapped(QJsonValue value)
    {
        if (below(3) == 0)
            return QJsonArray{value};
        // Adds levels that D-Bus can represent, at most a few more than the bus accepts.
        const int levels = below(2) == 0 ? 1 : 20 + below(14);
        for (int i = 0; i < levels; ++i)
            value = below(2) == 0 ? QJsonValue(QJsonObject{{"a", value}}) : QJsonArray{true, value};
        return value;
    }

    QJsonValue anyValue()
    {
        switch (below(9)) {
        case 0:
            return QJsonValue::Null;
        case 1:
            return below(2) == 0;
        case 2:
            return anyNumber();
        case 3:
            return QJsonArray();
        case 4:
            return QJsonArray{anyValue()};
        case 5:
            return QJsonArray{anyValue(), anyValue()};
        case 6:
            return QJsonObject();
        case 7:
            return QJsonObject{{anyText(), anyValue()}};
        default:
            return anyText();
        }
    }

    QJsonValue anyNumber()
    {
        static const double numbers[] = {0,
                                         -0.0,
                                         1,
                                         -1,
                                         2.5,
                                         0.1,
                                         123456.7,
                                         9007199254740993.0,
                                         1e300,
                                         5e-324,
                                         double(std::numeric_limits<int>::min()),
                                         double(std::numeric_limits<std::uint64_t>::max())};
        return numbers[below(int(std::size(numbers)))];
    }

    QString anyText()
    {
        switch (below(6)) {
        case 0:
            return {};
        case 1:
            return "\U0001F40E";
        case 2:
            return QChar(below(0x10000)); // may be U+0000 or a lone surrogate
        case 3:
            return changedText(QString());
        default:
            return QChar('a' + below(4));
        }
    }

    /// Lets libFuzzer change the text. It uses its dictionary and the operands of comparisons.
    QString changedText(const QString &text)
    {
        QByteArray bytes = text.toUtf8();
        const int size = bytes.size();
        bytes.resize(size + 64);
        auto *data = reinterpret_cast<std::uint8_t *>(bytes.data());
        const std::size_t newSize = LLVMFuzzerMutate(data, std::size_t(size), std::size_t(bytes.size()));
        return QString::fromUtf8(bytes.constData(), int(newSize));
    }

    int below(int end) { return int(m_random() % unsigned(end)); }

    std::minstd_rand m_random;
};

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed)
{
    const QJsonObject input = Fuzz::jsonInput(data, size);
    if (input.isEmpty())
        return LLVMFuzzerMutate(data, size, maxSize);
    const QByteArray output = QJsonDocument(TreeMutator(seed).changedMember(input)).toJson(QJsonDocument::Compact);
    if (std::size_t(output.size()) > maxSize)
        return size;
    std::copy(output.begin(), output.end(), data);
    return std::size_t(output.size());
}

namespace Fuzz {

namespace {

/// Returns the value with all members inserted one by one. The parser sorts keys beyond U+FFFF, and keys with a byte
/// order mark, in another order than look-ups expect.
QJsonValue inserted(const QJsonValue &value)
{
    if (value.isArray()) {
        QJsonArray array;
        const QJsonArray given = value.toArray();
        for (const auto &element : given)
            array.append(inserted(element));
        return array;
    }
    if (value.isObject()) {
        QJsonObject object;
        const QJsonObject given = value.toObject();
        for (auto member = given.begin(); member != given.end(); ++member)
            object.insert(member.key(), inserted(member.value()));
        return object;
    }
    return value;
}

bool hasNoncharacters(const QString &text)
{
    for (int i = 0; i < text.size(); ++i) {
        uint c = text[i].unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            c = QChar::surrogateToUcs4(ushort(c), text[++i].unicode());
        if (QChar::isNonCharacter(c))
            return true;
    }
    return false;
}

bool hasNoncharacters(const QJsonValue &value)
{
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        return std::any_of(array.begin(), array.end(), [](const QJsonValue &v) { return hasNoncharacters(v); });
    }
    return value.isObject() ? Fuzz::hasNoncharacters(value.toObject()) : hasNoncharacters(value.toString());
}

/// Returns whether the input may contain such keys, plain or escaped.
bool mayNeedInserting(const QByteArray &json)
{
    return json.contains("\\u") || json.contains("\xEF\xBB\xBF")
        || std::any_of(json.begin(), json.end(), [](char c) { return std::uint8_t(c) >= 0xf0; });
}

} // namespace

QJsonObject jsonInput(const std::uint8_t *data, std::size_t size)
{
    // libFuzzer often mutates the input that it has just run.
    static QByteArray lastText;
    static QJsonObject last;
    const QByteArray text = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    if (text == lastText)
        return last;

    const __lsan::ScopedDisabler disabler; // the parser leaks the value of a repeated key
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    last = mayNeedInserting(text) ? inserted(object).toObject() : object;
    lastText = QByteArray(text.constData(), text.size());
    return last;
}

bool hasNoncharacters(const QJsonObject &input)
{
    for (auto member = input.begin(); member != input.end(); ++member) {
        if (hasNoncharacters(member.key()) || hasNoncharacters(member.value()))
            return true;
    }
    return false;
}

} // namespace Fuzz
