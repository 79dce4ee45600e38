#include "ctl/lines.h"

#include <utility>

#include "text/grammar.h"
#include "text/writing.h"

namespace {

std::string withoutBreak(store::LineWriter writer) {
    writer.text.pop_back();
    return std::move(writer.text);
}

}  // namespace

std::string keyText(std::string_view name, uint32_t index) {
    std::string text;
    store::appendName(text, name);
    if (index != 0)
        text.append("[").append(std::to_string(index)).append("]");
    return text;
}

std::string labelledKey(std::string_view name, size_t structure, std::string_view label) {
    const size_t size = structure == 0 ? name.size() : structure;
    const std::string text = keyText(name.substr(0, size), 0).append("[$").append(label).append("]");
    return size == name.size() ? text : text + '.' + keyText(name.substr(size + 1), 0);
}

std::string valueLine(const ShownKey& key, const ostrel::Value& value) {
    const std::string_view name = key.name;
    store::LineWriter writer;
    if (key.structure == 0)
        writer.value({name, key.index}, toStore(value));
    else
        writer.value({name.substr(0, key.structure), key.index, name.substr(key.structure + 1)},
                     toStore(value));
    return withoutBreak(std::move(writer));
}

std::string instanceLine(std::string_view structure, uint32_t key, std::string_view templateName,
                         uint32_t owner) {
    store::LineWriter writer;
    writer.instance({structure, key}, {std::string(templateName), owner});
    return withoutBreak(std::move(writer));
}

store::Value toStore(const ostrel::Value& value) {
    if (store::isText(value.type))
        return {value.text, value.type};
    return store::makeNumber(value.type, value.number);
}

ostrel::Value fromStore(const store::Value& value) {
    if (store::isText(value.type))
        return {value.type, 0, value.bytes};
    return {value.type, store::numberOf(value), {}};
}
