// The byte layout of value lists: parsing returns borrowed entries, building appends to a byte string; the
// four functions on arrays of records stand on top of both.
//
// All words are unsigned, 32-bit, little-endian, unaligned. A list is a code, a count, then the entries. The
// parsers get what follows the code; no length in it is believed before it was checked against what is left.
#pragma once

#include <cstdint>
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

// Builds a parameters list entry by entry; its count is brought up to date by each.
class ParametersBuilder {
public:
    explicit ParametersBuilder(uint32_t code);
    void add(const Parameter& entry);
    std::span<unsigned char> bytes() { return bytes_; }

private:
    std::vector<unsigned char> bytes_;
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
