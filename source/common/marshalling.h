// The byte layout of value lists: parsing returns borrowed entries, building appends to a byte string; the
// four functions on arrays of records stand on top of both.
//
// All words are unsigned, 32-bit, little-endian, unaligned. A list is a code, a count, then the entries. The
// parsers get what follows the code; no length in it is believed before it was checked against what is left.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "ostrel/plugin.h"

// One entry of a parameters list. The texts end where the view ends: no NUL follows.
struct Parameter {
    std::string_view name;
    std::span<const unsigned char> value;
    ostrelValueType type = ostrelTypeNone;
    uint32_t pKey = 0;
    uint32_t owner = 0;
    std::string_view tpltName;

    // The value's first four bytes as a number; 0 when it is shorter.
    uint32_t valueAsNumber() const;
};

// The word at bytes, wherever it falls.
uint32_t readWord(const unsigned char* bytes);

// The entries of a parameters list, borrowed from bytes; nothing when a count or length runs past the end, or
// a name is too long or holds a NUL. Bytes behind the last entry are logged and ignored.
std::optional<std::vector<Parameter>> parseParameters(std::span<const unsigned char> bytes);

// The entry's name, ended by a NUL. It takes the place of the word behind the name, which has been read: list
// is what was parsed, the caller's own, and can not be parsed again.
const char* endName(const Parameter& entry, std::span<unsigned char> list);

// Builds a parameters list entry by entry; its count is brought up to date by each.
class ParametersBuilder {
public:
    explicit ParametersBuilder(uint32_t code);
    void add(const Parameter& entry);
    // An entry whose value is written in place, by the caller: up to room bytes. It belongs to the list once
    // endValue() was told of them; until then add() and this write over it.
    unsigned char* beginValue(std::string_view name, size_t room);
    void endValue(size_t size, ostrelValueType type);

    std::span<unsigned char> bytes() { return {bytes_.get(), size_}; }

private:
    void makeRoom(size_t size);
    void endEntry(const unsigned char* end);

    std::unique_ptr<unsigned char[]> bytes_;
    size_t capacity_;
    size_t size_;
    size_t valueAt_ = 0;  // of the entry that was begun
};

// Build the list of count consecutive records, whose names must not be null. The caller owns the array (array
// delete); size receives its length.
unsigned char* OstrelMarshallParameters(unsigned int code, unsigned int count, OstrelValue* values,
                                        unsigned int* size);
// Interface only, with its twin below.
unsigned char* OstrelMarshallQuestions(unsigned int code, unsigned int count, OstrelValue* values,
                                       unsigned int* size);

// False when the list does not decode; the out-arguments are then as they were. Otherwise the caller owns the
// array of count records (array delete); in those of a parameters list tpltName is never null.
bool OstrelUnMarshallParameters(unsigned int size, unsigned char* bytes, unsigned int* count,
                                OstrelValue** values);
bool OstrelUnMarshallQuestions(unsigned int size, unsigned char* bytes, unsigned int* count,
                               OstrelValue** values);
