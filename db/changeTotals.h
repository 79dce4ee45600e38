// How many rows the changes over the defaults are, and how long their lines.
#pragma once

#include <cstddef>

#include "text/grammar.h"

namespace store {

struct ChangeTotals {
    size_t rows = 0;
    size_t bytes = 0;

    // Unsigned numbers wrap, and back again.
    void replace(const ChangeTotals& old, const ChangeTotals& now) {
        rows += now.rows - old.rows;
        bytes += now.bytes - old.bytes;
    }
};

// Of the rows that write(visitor) hands out.
template <class Write>
ChangeTotals totalsOf(Write write) {
    LineWriter writer;
    writer.text.reserve(128);
    write(writer);
    return {writer.lines, writer.text.size()};
}

}  // namespace store
