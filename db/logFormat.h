// The live file as a log of transactions: each is its lines and a closing line that vouches for them,
//   @commit NUMBER TIME BYTES CRC
// Editors put a byte order mark in front of a file, carriage returns before its line breaks, or no line break
// at its end. That costs no transaction: what is counted and checked is the text without. Behind the last
// transaction there may be a room (db/room.h). Pure functions on text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "text/values.h"

namespace store {

// The CRC-32 in eight hexadecimal digits.
std::string hexCrc(std::string_view bytes);

// Appends the closing line. BYTES counts what stands before it; CRC is the CRC-32 of all up to the CRC
// itself.
void closeTransaction(std::string& lines, uint64_t number, time_t now);

struct LogScan {
    enum class End {
        whole,     // every byte belongs to a good transaction or to a room
        torn,      // the rest is what a crash leaves of a write
        doubtful,  // that, or the last transaction, damaged
        damaged    // the rest was once more than that: behind it is a transaction that is whole
    };
    bool isCut() const { return end == End::torn || end == End::doubtful; }  // the rest does not count

    End end = End::whole;
    size_t goodBytes = 0;       // of the good transactions at the front
    size_t goodLines = 0;       // up to there, without closing lines
    size_t transactions = 0;    // of them
    uint64_t lastNumber = 0;    // of the last of them; 0: there is none
    size_t badLine = 0;         // the line, from 1, that the rest starts with; 0: the log is whole
    bool lacksNewline = false;  // the last of them has no line break behind it
};

LogScan scanLog(std::string_view text);

// A part of a log that is not good as a whole.
struct LogPiece {
    size_t begin = 0;
    size_t closing = 0;   // where the closing line begins; end when there is none
    size_t end = 0;       // behind the closing line, and the room that ends the log
    uint64_t number = 0;  // of the transaction; 0: no closing line vouches for the piece
    Result fault;         // why not
};

// All of the text, in order. A closing line vouches for as many bytes before it as it counts, wherever they
// begin, so that damage to one transaction costs no other. Numbers may repeat or be missing. A room belongs
// to the piece behind it.
std::vector<LogPiece> splitLog(std::string_view text);

}  // namespace store
