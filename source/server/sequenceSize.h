// How much memory a client's write sequence takes: its staged changes and its entries of listOfChangedStuff.
//
// Counted from what the messages say, as the database does not tell. So it is mostly more than is taken: a
// vector's elements share a name, and a value that is written again counts again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class SequenceSize {
public:
    static constexpr size_t limit = size_t{64} * 1024 * 1024;

    // Each counts one operation that is about to be applied. False, with nothing counted: it would pass the
    // limit, so the sequence must end.
    bool takeWrite(std::string_view name, size_t valueSize) { return take(changeOf(name) + row + valueSize); }
    bool takeInstance(std::string_view name, std::string_view templateName) {
        const bool first = name != lastStructure_;
        if (!take(changeOf(name) + row + templateName.size() + (first ? members : 0)))
            return false;
        lastStructure_ = name;
        return true;
    }
    // rows: the instances or elements that go. What is over the limit with it is refused from then on: else
    // nobody could remove what many sequences have made.
    bool takeRemoval(std::string_view name, size_t rows) {
        if (bytes_ > limit)
            return false;
        bytes_ += changeOf(name) + rows * row;
        return true;
    }

private:
    // Bytes, with the memory allocator's own. A name's node in the transaction (176), the changed entry (80)
    // and its places in the list while that grows (24), three texts (8 to 24 more than their characters).
    static constexpr size_t change = 320;
    // An element's or instance's node in the transaction (96), and its texts.
    static constexpr size_t row = 128;
    // The first instance of a structure in a sequence stages a name for each member, about 220 bytes. How
    // many there are only the database knows; this is for 18.
    static constexpr size_t members = 4096;

    // The name stands in the transaction and in the changed entry.
    static size_t changeOf(std::string_view name) { return change + 2 * name.size(); }

    bool take(size_t bytes) {
        if (bytes_ > limit || bytes > limit - bytes_)
            return false;
        bytes_ += bytes;
        return true;
    }

    size_t bytes_ = 0;
    std::string lastStructure_;
};
