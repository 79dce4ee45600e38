#include "common/marshalling.h"
#include "common/logText.h"

#include <array>
#include <cstring>
#include <memory>

#include "common/linkModule.h"
#include "common/ostrelUtils.h"
#include "text/names.h"

namespace {

constexpr size_t wordSize = 4;
constexpr size_t parameterSize = 21;  // of an entry with an empty name, value and template name
constexpr size_t questionSize = 4;
constexpr size_t usualList = 8192;  // that a list is built in without growing

// Takes pieces off the front of the given bytes, never more than are left.
class Reader {
public:
    explicit Reader(std::span<const unsigned char> bytes) : left_(bytes) {}

    size_t left() const { return left_.size(); }

    std::optional<std::span<const unsigned char>> take(size_t size) {
        if (size > left_.size())
            return std::nullopt;
        auto piece = left_.first(size);
        left_ = left_.subspan(size);
        return piece;
    }

    bool word(uint32_t& result) {
        auto piece = take(wordSize);
        if (piece)
            result = readWord(piece->data());
        return piece.has_value();
    }

    bool name(std::string_view& result) {
        uint32_t length = 0;
        if (!word(length) || length > store::longestName)
            return false;
        auto piece = take(length);
        if (!piece)
            return false;
        result = {reinterpret_cast<const char*>(piece->data()), piece->size()};
        return result.find('\0') == std::string_view::npos;
    }

    bool parameter(Parameter& result) {
        uint32_t size = 0;
        if (!name(result.name) || !word(size))
            return false;
        auto value = take(size);
        auto type = take(1);
        if (!value || !type)
            return false;
        result.value = *value;
        result.type = static_cast<ostrelValueType>(type->front());
        return word(result.pKey) && word(result.owner) && name(result.tpltName);
    }

    // A count that the bytes left cannot hold is no count.
    bool count(size_t entrySize, uint32_t& result) { return word(result) && result <= left() / entrySize; }

private:
    std::span<const unsigned char> left_;
};

// Writes to the bytes that it was given.
class Writer {
public:
    explicit Writer(unsigned char* bytes) : begin_(bytes), at_(bytes) {}

    void word(uint32_t word) { raw(&word, sizeof word); }

    void text(std::string_view text) {
        word(static_cast<uint32_t>(text.size()));
        raw(text.data(), text.size());
    }

    void parameter(const Parameter& entry) {
        text(entry.name);
        word(static_cast<uint32_t>(entry.value.size()));
        raw(entry.value.data(), entry.value.size());
        behindValue(entry);
    }

    // What an entry has behind its value.
    void behindValue(const Parameter& entry) {
        auto type = static_cast<unsigned char>(entry.type);
        raw(&type, 1);
        word(entry.pKey);
        word(entry.owner);
        text(entry.tpltName);
    }

    unsigned char* at() const { return at_; }
    size_t written() const { return static_cast<size_t>(at_ - begin_); }

private:
    void raw(const void* bytes, size_t size) {
        if (size > 0)
            std::memcpy(at_, bytes, size);
        at_ += size;
    }

    unsigned char* begin_;
    unsigned char* at_;
};

Parameter borrow(const OstrelValue& value) {
    return {value.name,  {value.value, value.size},
            value.type,  value.pKey,
            value.owner, value.tpltName != nullptr ? value.tpltName : ""};
}

size_t sizeOf(const Parameter& entry) {
    return parameterSize + entry.name.size() + entry.value.size() + entry.tpltName.size();
}

// The records' texts end with a NUL, the list's do not.
class TextCopy {
public:
    const char* of(std::string_view text) {
        const size_t length = text.copy(text_.data(), store::longestName);
        text_[length] = '\0';
        return text_.data();
    }

private:
    std::array<char, store::longestName + 1> text_{};
};

}  // namespace

uint32_t readWord(const unsigned char* bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

uint32_t Parameter::valueAsNumber() const { return value.size() < wordSize ? 0 : readWord(value.data()); }

std::optional<std::vector<Parameter>> parseParameters(std::span<const unsigned char> bytes) {
    Reader reader(bytes);
    uint32_t count = 0;
    if (!reader.count(parameterSize, count))
        return std::nullopt;
    std::vector<Parameter> entries(count);
    for (Parameter& entry : entries) {
        if (!reader.parameter(entry))
            return std::nullopt;
    }
    if (reader.left() != 0) {
        auto unused = static_cast<int>(reader.left());
        OSTREL_LOG_AT(logPlace::unmarshallParameters, logLevel::error,
                      "[OstrelUnMarshallParameters] size not null :%d", unused);
        OSTREL_LOG_AT(logPlace::unmarshallParameters, logLevel::error,
                      "[OstrelUnMarshallParameters] Error mismatch end of buffer :%d", unused);
    }
    return entries;
}

const char* endName(const Parameter& entry, std::span<unsigned char> list) {
    const char* name = entry.name.data();
    list[static_cast<size_t>(name - reinterpret_cast<const char*>(list.data())) + entry.name.size()] = '\0';
    return name;
}

ParametersBuilder::ParametersBuilder(uint32_t code)
    : bytes_(std::make_unique_for_overwrite<unsigned char[]>(usualList)),
      capacity_(usualList),
      size_(2 * wordSize) {
    Writer writer(bytes_.get());
    writer.word(code);
    writer.word(0);
}

void ParametersBuilder::makeRoom(size_t size) {
    if (size <= capacity_ - size_)
        return;
    const size_t capacity = 2 * capacity_ + size;
    auto larger = std::make_unique_for_overwrite<unsigned char[]>(capacity);
    std::memcpy(larger.get(), bytes_.get(), size_);
    bytes_ = std::move(larger);
    capacity_ = capacity;
}

void ParametersBuilder::endEntry(const unsigned char* end) {
    size_ = static_cast<size_t>(end - bytes_.get());
    Writer(bytes_.get() + wordSize).word(readWord(bytes_.get() + wordSize) + 1);
}

void ParametersBuilder::add(const Parameter& entry) {
    makeRoom(sizeOf(entry));
    Writer writer(bytes_.get() + size_);
    writer.parameter(entry);
    endEntry(writer.at());
}

unsigned char* ParametersBuilder::beginValue(std::string_view name, size_t room) {
    makeRoom(parameterSize + name.size() + room);
    Writer writer(bytes_.get() + size_);
    writer.text(name);
    writer.word(0);
    valueAt_ = static_cast<size_t>(writer.at() - bytes_.get());
    return writer.at();
}

void ParametersBuilder::endValue(size_t size, ostrelValueType type) {
    Writer(bytes_.get() + valueAt_ - wordSize).word(static_cast<uint32_t>(size));
    Writer writer(bytes_.get() + valueAt_ + size);
    writer.behindValue({.name = {}, .value = {}, .type = type, .tpltName = {}});
    endEntry(writer.at());
}

unsigned char* OstrelMarshallParameters(unsigned int code, unsigned int count, OstrelValue* values,
                                        unsigned int* size) {
    size_t length = 2 * wordSize;
    for (unsigned int i = 0; i < count; ++i)
        length += sizeOf(borrow(values[i]));
    auto list = std::make_unique<unsigned char[]>(length);
    Writer writer(list.get());
    writer.word(code);
    writer.word(count);
    for (unsigned int i = 0; i < count; ++i)
        writer.parameter(borrow(values[i]));
    if (writer.written() != length)
        OSTREL_LOG(logLevel::error, "[MarshallParam] Error mismatch end of buffer :%d",
                   static_cast<int>(writer.written() - length));
    *size = static_cast<unsigned int>(length);
    return list.release();
}

unsigned char* OstrelMarshallQuestions(unsigned int code, unsigned int count, OstrelValue* values,
                                       unsigned int* size) {
    size_t length = 2 * wordSize;
    for (unsigned int i = 0; i < count; ++i)
        length += questionSize + std::strlen(values[i].name);
    auto list = std::make_unique<unsigned char[]>(length);
    Writer writer(list.get());
    writer.word(code);
    writer.word(count);
    for (unsigned int i = 0; i < count; ++i)
        writer.text(values[i].name);
    if (writer.written() != length)
        OSTREL_LOG(logLevel::error, "[OstrelMarshallQuestions] Error mismatch end of buffer :%d",
                   static_cast<int>(writer.written() - length));
    *size = static_cast<unsigned int>(length);
    return list.release();
}

bool OstrelUnMarshallParameters(unsigned int size, unsigned char* bytes, unsigned int* count,
                                OstrelValue** values) {
    auto entries = parseParameters({bytes, size});
    if (!entries)
        return false;
    auto records = std::make_unique<OstrelValue[]>(entries->size());
    TextCopy text;
    for (size_t i = 0; i < entries->size(); ++i) {
        const Parameter& entry = (*entries)[i];
        records[i].setName(text.of(entry.name));
        // Copied from only.
        records[i].setValue(static_cast<unsigned int>(entry.value.size()),
                            const_cast<unsigned char*>(entry.value.data()));
        records[i].setType(entry.type);
        records[i].pKey = entry.pKey;
        records[i].owner = entry.owner;
        records[i].setTpltName(text.of(entry.tpltName));
    }
    *count = static_cast<unsigned int>(entries->size());
    *values = records.release();
    return true;
}

bool OstrelUnMarshallQuestions(unsigned int size, unsigned char* bytes, unsigned int* count,
                               OstrelValue** values) {
    Reader reader({bytes, size});
    uint32_t entries = 0;
    if (!reader.count(questionSize, entries))
        return false;
    auto records = std::make_unique<OstrelValue[]>(entries);
    TextCopy text;
    for (uint32_t i = 0; i < entries; ++i) {
        std::string_view name;
        if (!reader.name(name))
            return false;
        records[i].setName(text.of(name));
    }
    for (uint32_t i = 0; i < entries; ++i)
        OSTREL_LOG(logLevel::debug, "Question [%02d] <%s>", static_cast<int>(i),
                   LogText(records[i].name).text());
    *count = entries;
    *values = records.release();
    return true;
}
