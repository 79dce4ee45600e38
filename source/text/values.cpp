#include "text/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace store {
namespace {

static_assert(std::endian::native == std::endian::little, "a number begins with its lowest byte");

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

size_t sizeOf(const Value& value) { return value.bytes.size() + (isText(value.type) ? 1 : 0); }

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
    const TypeInfo& info = infoOf(type);
    if (info.type == ostrelTypeNone)
        return {"unknown type"};
    std::string content(bytes.begin(), bytes.end());
    if (info.isText) {
        if (content.empty() || content.back() != '\0')
            return {"the text does not end with a NUL"};
        content.pop_back();
        if (const Result result = checkText(type, content); !result.ok())
            return result;
    } else if (content.size() != info.size) {
        return {"the size does not fit the type"};
    }
    value = {std::move(content), type};
    return {};
}

Value makeNumber(ostrelValueType type, uint32_t number) {
    std::string bytes(infoOf(type).size, '\0');
    std::memcpy(bytes.data(), &number, bytes.size());
    return {std::move(bytes), type};
}

uint32_t numberOf(const Value& value) {
    uint32_t number = 0;
    if (!isText(value.type))
        std::memcpy(&number, value.bytes.data(), std::min(value.bytes.size(), sizeof number));
    return number;
}

}  // namespace store
