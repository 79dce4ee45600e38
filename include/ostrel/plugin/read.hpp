// Typed reads. Main thread, in any entry.
#ifndef OSTREL_PLUGIN_READ_HPP
#define OSTREL_PLUGIN_READ_HPP

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ostrel/plugin/phase.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin {

// A value that the plug-in cannot use. The text begins with the key.
class BadValue : public std::runtime_error {
public:
    BadValue(const std::string& key, unsigned int index, const std::string& reason)
        : std::runtime_error(shown(key, index) + ": " + reason) {}

    static std::string shown(const std::string& key, unsigned int index) {
        return index == 0 ? key : key + '[' + std::to_string(index) + ']';
    }
};

// Index 0 is the plain value of a key, any other an element of a vector or the instance of a member.

// Nothing when there is no such value.
inline std::optional<ostrelValueType> typeOf(const std::string& key, unsigned int index = 0) {
    ostrelValueType type = ostrelTypeNone;
    if (OstrelClientGetType(key.c_str(), index, &type) != 1)
        return std::nullopt;
    return type;
}

namespace detail {

// With its article.
inline std::string typeName(ostrelValueType type) {
    std::string name;
    switch (type) {
        case ostrelTypeNone:
            return "nothing";
#define OSTREL_TYPE_NAME(NAME, SIZE, LARGEST) \
    case ostrelType##NAME:                    \
        name = #NAME;                         \
        break;
            OSTREL_VALUE_TYPES(OSTREL_TYPE_NAME)
#undef OSTREL_TYPE_NAME
    }
    if (name.empty())
        return "of an unknown type";
    const bool isVowel = std::string("AEIOU").find(name.front()) != std::string::npos;
    return (isVowel ? "an " : "a ") + name;
}

// The bytes as they are stored; nothing when there is no such value.
inline std::optional<std::string> readBytes(const std::string& key, unsigned int index,
                                            ostrelValueType wanted) {
    std::optional<ostrelValueType> type = typeOf(key, index);
    if (!type)
        return std::nullopt;
    if (*type != wanted)
        throw BadValue(key, index, "is " + typeName(*type) + ", not " + typeName(wanted));
    constexpr unsigned int mostBytes = 64U << 20U;
    for (unsigned int room = 512; room <= mostBytes; room *= 4) {
        std::vector<unsigned char> buffer(room);
        std::memcpy(buffer.data(), &index, sizeof index);
        unsigned int size = 0;
        if (OstrelClientReadValueWithPKey(key.c_str(), room, &size, buffer.data()) == 1)
            return std::string(reinterpret_cast<const char*>(buffer.data()), size);
    }
    throw BadValue(key, index, "cannot be read");
}

template <typename Number>
std::optional<Number> readNumber(const std::string& key, unsigned int index, ostrelValueType type) {
    const std::optional<std::string> bytes = readBytes(key, index, type);
    if (!bytes)
        return std::nullopt;
    Number number = 0;
    std::memcpy(&number, bytes->data(), std::min(bytes->size(), sizeof number));
    return number;
}

inline std::optional<std::string> readText(const std::string& key, unsigned int index, ostrelValueType type) {
    std::optional<std::string> text = readBytes(key, index, type);
    if (text)
        text->resize(std::min(text->find('\0'), text->size()));
    return text;
}

}  // namespace detail

// Each returns nothing when there is no such value and throws BadValue when it has another type.

inline std::optional<bool> readBool(const std::string& key, unsigned int index = 0) {
    std::optional<uint8_t> byte = detail::readNumber<uint8_t>(key, index, ostrelTypeBool);
    return byte ? std::optional<bool>(*byte != 0) : std::nullopt;
}
inline std::optional<uint8_t> readByte(const std::string& key, unsigned int index = 0) {
    return detail::readNumber<uint8_t>(key, index, ostrelTypeByte);
}
inline std::optional<uint32_t> readDword(const std::string& key, unsigned int index = 0) {
    return detail::readNumber<uint32_t>(key, index, ostrelTypeDword);
}
inline std::optional<std::string> readString(const std::string& key, unsigned int index = 0) {
    return detail::readText(key, index, ostrelTypeString);
}
inline std::optional<std::string> readIp(const std::string& key, unsigned int index = 0) {
    return detail::readText(key, index, ostrelTypeIP);
}
inline std::optional<std::string> readMac(const std::string& key, unsigned int index = 0) {
    return detail::readText(key, index, ostrelTypeMAC);
}
// A String that can stand on a line of a configuration file: BadValue also when a control character, such as
// a line break, is in it.
inline std::optional<std::string> readLine(const std::string& key, unsigned int index = 0) {
    std::optional<std::string> text = readString(key, index);
    auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    if (text && std::any_of(text->begin(), text->end(), isControl))
        throw BadValue(key, index, "has a control character");
    return text;
}

// The primary keys of the structure's instances that belong to the owner, ascending.
inline std::vector<unsigned int> instancesOf(const std::string& structure, unsigned int owner) {
    unsigned int size = 0;
    if (OstrelClientGetVectorSize(structure.c_str(), owner, &size) != 1 || size > 0x7FFFFFFFU)
        throw BadValue(structure, 0, "cannot be counted");
    std::vector<unsigned int> keys(size);
    int count = static_cast<int>(size);
    if (size != 0 && OstrelClientGetPrimaryKeys(structure.c_str(), owner, keys.data(), &count) != 1)
        throw BadValue(structure, 0, "cannot be listed");
    keys.resize(static_cast<size_t>(count));
    return keys;
}
// The owner by its tag.
inline std::vector<unsigned int> instancesOf(const std::string& structure, const char* owner) {
    return instancesOf(structure, ostrelStringToOwner(owner));
}
// The indices of a vector's elements, ascending.
inline std::vector<unsigned int> elementsOf(const std::string& vector) { return instancesOf(vector, 0U); }

}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif
