// Those who are told of changes. Nothing here waits for them.
#pragma once

#include <cstdint>
#include <ostrel/plugin.hpp>
#include <string_view>
#include <vector>

namespace watch {

class Reader {
public:
    explicit Reader(ostrel::plugin::Descriptor connection);

    // False: it has gone. What finds no room is lost, and the reader told so.
    bool tell(std::string_view name);
    bool hasGone() const;

private:
    void tellLoss() const;

    ostrel::plugin::Descriptor connection_;
    int room_;               // bytes, as SO_SNDBUF takes them
    uint32_t number_ = 0;    // of the last change
    bool isBehind_ = false;  // the last change was lost
};

class Readers {
public:
    Readers();
    // Those that have gone make room. One too many is told so, and its connection closed.
    void add(ostrel::plugin::Descriptor connection);
    void tell(std::string_view name);

private:
    std::vector<Reader> readers_;
};

}  // namespace watch
