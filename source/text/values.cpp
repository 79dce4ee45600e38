#include "text/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace store {
namespace {

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 32 || byte == 127;
}

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool isIp(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

bool isMac(std::string_view text) {
    if (text.size() != 17 || (text[2] != ':' && text[2] != '-'))
        return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i % 3 == 2 ? text[i] != text[2] : !isHexDigit(text[i]))
            return false;
    }
    return true;
}

}  // namespace

bool isText(ostrelValueType type) {
    return type == ostrelTypeIP || type == ostrelTypeMAC || type == ostrelTypeString;
}

size_t sizeOf(const Value& value) { return value.bytes.size() + (isText(value.type) ? 1 : 0); }

Result checkName(std::string_view name) {
    if (name.empty())
        return {"the name is empty"};
    if (name.size() > maxNameSize)
        return {"the name is longer than 127 bytes"};
    if (std::ranges::any_of(name, isControl))
        return {"the name holds a control character"};
    return {};
}

Result checkText(ostrelValueType type, std::string_view text) {
    if (text.find('\0') != std::string_view::npos)
        return {"a NUL stands inside the text"};
    if (type == ostrelTypeIP && !text.empty() && !isIp(std::string(text)))
        return {"not an IP address"};
    if (type == ostrelTypeMAC && !text.empty() && !isMac(text))
        return {"not a MAC address"};
    return {};
}

Result makeValue(ostrelValueType type, std::span<const unsigned char> bytes, Value& value) {
    const auto take = [&](size_t size) {
        value = {std::string(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)), type};
    };
    if (isText(type)) {
        if (bytes.empty() || bytes.back() != 0)
            return {"the text does not end with a NUL"};
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size() - 1);
        if (const Result result = checkText(type, text); !result.ok())
            return result;
        take(text.size());
        return {};
    }
    if (type != ostrelTypeBool && type != ostrelTypeByte && type != ostrelTypeDword)
        return {"unknown type"};
    if (bytes.size() != (type == ostrelTypeDword ? 4U : 1U))
        return {"the size does not fit the type"};
    take(bytes.size());
    return {};
}

Value makeDword(uint32_t number) {
    std::string bytes(sizeof(number), '\0');
    std::memcpy(bytes.data(), &number, sizeof(number));
    return {std::move(bytes), ostrelTypeDword};
}

uint32_t dwordOf(const Value& value) {
    uint32_t number = 0;
    std::memcpy(&number, value.bytes.data(), sizeof(number));
    return number;
}

}  // namespace store
