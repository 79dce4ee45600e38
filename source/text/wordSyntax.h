// What reading and writing a word agree on.
#pragma once

namespace store {

// '@' opens the closing line of a transaction, so no bare name starts with it.
constexpr bool isBareStart(char c) { return c != '@'; }

constexpr bool isBare(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 32 && byte != 127 && c != '"' && c != '#' && c != '[' && c != ']' && c != '\\';
}

// The letter behind the backslash for the byte; 0 when it has none.
constexpr char escapeLetter(char byte) {
    switch (byte) {
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        case '"':
        case '\\':
            return byte;
        default:
            return 0;
    }
}

}  // namespace store
