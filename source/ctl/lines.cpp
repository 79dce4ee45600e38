#include "ctl/lines.h"

#include <utility>

#include "db/grammar.h"
#include "db/text.h"

namespace {

std::string withoutBreak(store::LineWriter writer) {
    writer.text.pop_back();
    return std::move(writer.text);
}

}  // namespace

std::string keyText(std::string_view name, std::uint32_t index) {
    std::string text;
    store::appendName(text, name);
    if (index != 0)
        text.append("[").append(std::to_string(index)).append("]");
    return text;
}

std::string labelledKey(std::string_view name, std::string_view label) {
    return keyText(name, 0).append("[$").append(label).append("]");
}

std::string valueLine(const ostrel::Key& key, const ostrel::Value& value) {
    store::LineWriter writer;
    writer.value({key.name, key.index}, toStore(value));
    return withoutBreak(std::move(writer));
}

std::string instanceLine(std::string_view structure, std::uint32_t key, std::string_view templateName,
                         std::uint32_t owner) {
    store::LineWriter writer;
    writer.instance({structure, key}, {std::string(templateName), owner});
    return withoutBreak(std::move(writer));
}

store::Value toStore(const ostrel::Value& value) {
    if (store::isText(value.type))
        return {value.text, value.type};
    if (value.type == ostrelTypeDword)
        return store::makeDword(value.number);
    return {std::string(1, static_cast<char>(value.number)), value.type};
}

ostrel::Value fromStore(const store::Value& value) {
    if (store::isText(value.type))
        return {value.type, 0, value.bytes};
    if (value.type == ostrelTypeDword)
        return {value.type, store::dwordOf(value), {}};
    return {value.type, static_cast<unsigned char>(value.bytes.front()), {}};
}
