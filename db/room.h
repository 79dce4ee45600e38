// The room at the live file's end: one line of # and blanks, which commits write over, so that the file keeps
// its size and the file system has nothing to journal for it. Behind what a commit wrote stand a # and the
// blanks that are left. What a power cut, an editor or a hand made of the room (no #, several lines, other
// line breaks or none) is none the worse, as there is nothing in it. Pure functions on text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace store {

// Is this a room and nothing else? Also when it is empty.
bool isRoom(std::string_view text);

// Bytes of the lines at the text's front that are a room, with their line breaks.
size_t leadingRoom(std::string_view text);

// Bytes at a room's front that can be written over without touching the line break that ends it; 0 when it
// is not one whole line.
size_t fillable(std::string_view room);

// A room of as many bytes; of one, the line break only.
std::string makeRoom(size_t bytes);

// Bytes of the room that is worth its cost behind a transaction of the size: so many like it fit that a
// change of the file's size is rare.
size_t roomBehind(size_t transaction);

}  // namespace store
