// A batch: changes as lines in the database files' syntax, and what these cannot say.
//
//   KEY TYPE VALUE | KEY[INDEX] TYPE VALUE | STRUCT[PKEY].MEMBER TYPE VALUE
//   KEY erased | KEY[INDEX] erased | STRUCT[PKEY] removed | STRUCT removed OWNER
//   STRUCT[$LABEL] instance TEMPLATE OWNER, and from then on STRUCT[$LABEL] where a primary key may stand
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "text/grammar.h"

namespace store {

struct BatchLine {
    // Of the kinds blank, value, erased, instance and removed. The index is 1 where a label stands.
    Line line{};
    std::string label{};              // without its $; empty: the line has none
    std::optional<uint32_t> owner{};  // of STRUCT removed OWNER
};

// Reads the lines of one batch in their order.
class BatchReader {
public:
    // text: without its line break. Returns why it is refused; line then has its key when the grammar takes
    // it. A line whose label is that of a refused instance is not refused for it: it is blank.
    std::optional<std::string> read(std::string_view text, size_t number, BatchLine& line);

private:
    struct Made {
        size_t number = 0;  // of the line that makes it
        bool isRefused = false;
    };

    std::optional<std::string> readChange(std::string_view text, size_t number, BatchLine& read);
    std::optional<std::string> make(size_t number, const BatchLine& read);
    std::optional<std::string> use(BatchLine& read) const;

    std::map<std::string, Made, std::less<>> made_;  // by label
};

}  // namespace store
