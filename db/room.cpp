#include "db/room.h"

#include <algorithm>

namespace store {
namespace {

constexpr size_t smallestRoom = size_t{4} << 10U;
constexpr size_t largestRoom = size_t{64} << 10U;
constexpr size_t transactionsPerRoom = 16;

// The place of the first byte that is no room's.
size_t roomEnd(std::string_view text) {
    return std::min(text.find_first_not_of(" \r\n", text.starts_with('#') ? 1 : 0), text.size());
}

}  // namespace

bool isRoom(std::string_view text) { return roomEnd(text) == text.size(); }

size_t leadingRoom(std::string_view text) {
    const size_t end = roomEnd(text);
    return text.substr(0, end).rfind('\n') + 1;  // 0 without a line break
}

size_t fillable(std::string_view room) {
    const size_t lineBreak = room.find_first_of("\r\n");
    return lineBreak + 1 == room.size() && room.ends_with('\n') ? lineBreak : 0;
}

std::string makeRoom(size_t bytes) {
    std::string room(bytes, ' ');
    if (bytes > 1)
        room.front() = '#';
    if (bytes > 0)
        room.back() = '\n';
    return room;
}

size_t roomBehind(size_t transaction) {
    return std::clamp(transactionsPerRoom * transaction, smallestRoom, largestRoom);
}

}  // namespace store
