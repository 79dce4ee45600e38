// The lines of the three database files. Pure functions on text; docs/database-files.md describes the
// grammar.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "text/cursor.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

struct Line {
    enum class Kind {
        blank,     // also a comment
        heading,   // [NAME] opens a template
        value,     // KEY TYPE VALUE
        erased,    // KEY erased # ORIGIN
        instance,  // KEY instance TEMPLATE OWNER
        removed,   // KEY removed # ORIGIN
        lastKey,   // NAME last NUMBER
        closing    // @..., the end of a transaction
    };

    Kind kind = Kind::blank;
    std::string name;
    uint32_t index = 0;
    std::string member;  // together with name at most longestName bytes
    Value value;
    Instance instance;
    uint32_t number = 0;              // lastKey
    Origin origin = Origin::unknown;  // erased, removed

    RowKey key() const { return {name, index, member}; }
};

// text: one line without its line break. Of a refused line only the kind tells what it seemed to be.
Result parseLine(std::string_view text, Line& line);

// Of a tag of up to four bytes.
Result ownerOf(std::string_view tag, uint32_t& owner);

// A number, or such a tag in quotes.
Result takeOwner(Cursor& cursor, uint32_t& owner);

// Writes each row as one line.
class LineWriter final : public RowVisitor {
public:
    void value(const RowKey& key, const Value& value) override;
    void erased(const RowKey& key, Origin origin) override;
    void instance(const RowKey& key, const Instance& instance) override;
    void removed(const RowKey& key, Origin origin) override;
    void lastKey(std::string_view structure, uint32_t last) override;

    std::string text;
    size_t lines = 0;

private:
    void begin(const RowKey& key);
    void state(const RowKey& key, std::string_view word, Origin origin);
    void end();
};

}  // namespace store
