#include "db/logFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "db/room.h"
#include "text/characters.h"
#include "text/grammar.h"
#include "text/writing.h"

namespace store {
namespace {

constexpr std::string_view opening = "@commit ";
constexpr std::string_view timePattern = "dddd-dd-ddTdd:dd:ddZ";
constexpr size_t crcDigits = 8;

constexpr size_t crcStep = 8;
// Of a byte with 0, 1, ... bytes behind it.
using CrcTables = std::array<std::array<uint32_t, 256>, crcStep>;

constexpr CrcTables makeCrcTables() {
    CrcTables tables{};
    for (uint32_t i = 0; i < tables[0].size(); ++i) {
        uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1U) != 0 ? crc >> 1U ^ 0xEDB88320U : crc >> 1U;
        tables[0][i] = crc;
    }
    for (size_t behind = 1; behind < tables.size(); ++behind) {
        for (size_t i = 0; i < tables[0].size(); ++i) {
            const uint32_t before = tables[behind - 1][i];
            tables[behind][i] = before >> 8U ^ tables[0][before & 0xFFU];
        }
    }
    return tables;
}

uint32_t crc32(std::string_view bytes) {
    static constexpr CrcTables tables = makeCrcTables();
    uint32_t crc = 0xFFFFFFFFU;
    // Eight look-ups that do not wait for each other: a start reads the whole live file.
    for (; bytes.size() >= crcStep; bytes.remove_prefix(crcStep)) {
        uint32_t next = 0;
        for (size_t i = 0; i < crcStep; ++i) {
            const uint32_t old = i < sizeof crc ? crc >> (8 * i) : 0;
            next ^= tables[crcStep - 1 - i][(old ^ static_cast<unsigned char>(bytes[i])) & 0xFFU];
        }
        crc = next;
    }
    for (const char c : bytes)
        crc = tables[0][(crc ^ static_cast<unsigned char>(c)) & 0xFFU] ^ crc >> 8U;
    return ~crc;
}

bool isReturnBeforeBreak(std::string_view text, size_t at) {
    return text[at] == '\r' && (at + 1 == text.size() || text[at + 1] == '\n');
}

// Of one line.
std::string_view withoutReturn(std::string_view line) {
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

std::string withoutReturns(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t at = 0; at < text.size(); ++at) {
        if (!isReturnBeforeBreak(text, at))
            result += text[at];
    }
    return result;
}

struct Closing {
    uint64_t number = 0;
    uint64_t bytes = 0;
    std::string_view crc;  // the last of the closing line
};

bool takeNumber(std::string_view& text, uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    if (error != std::errc() || text.empty() || text.front() != ' ')
        return false;
    text.remove_prefix(1);
    return true;
}

bool takeTime(std::string_view& text) {
    if (text.size() <= timePattern.size())
        return false;
    for (size_t i = 0; i < timePattern.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (timePattern[i] == 'd' ? !digit : text[i] != timePattern[i])
            return false;
    }
    text.remove_prefix(timePattern.size());
    return text.front() == ' ' && (text.remove_prefix(1), true);
}

// The closing line that the text begins with; what follows it does not matter.
std::optional<Closing> takeClosing(std::string_view text) {
    Closing closing;
    if (!text.starts_with(opening))
        return std::nullopt;
    text.remove_prefix(opening.size());
    if (!takeNumber(text, closing.number) || !takeTime(text) || !takeNumber(text, closing.bytes))
        return std::nullopt;
    closing.crc = text.substr(0, crcDigits);
    return closing.crc.size() == crcDigits &&
                   closing.crc.find_first_not_of(hexDigits) == std::string_view::npos
               ? std::optional(closing)
               : std::nullopt;
}

// The place behind the closing line, which is a part of the text.
size_t endOf(std::string_view text, const Closing& closing) {
    return static_cast<size_t>(closing.crc.data() + closing.crc.size() - text.data());
}

size_t lineBreakSize(std::string_view text) {
    return text.starts_with("\r\n") ? 2 : text.starts_with('\n') || text == "\r" ? 1 : 0;
}

// Where what follows a closing line begins, of which the checksum ends at the place. Blanks behind that are
// not the line's: where a room follows, the line break is what a power cut kept from being written over them.
size_t behindClosing(std::string_view text, size_t at) {
    const std::string_view rest = text.substr(at);
    const size_t blanks = std::min(rest.find_first_not_of(' '), rest.size());
    const size_t lineBreak = lineBreakSize(rest.substr(blanks));
    return blanks > 0 && (lineBreak == 0 || isRoom(rest)) ? at : at + blanks + lineBreak;
}

std::optional<Closing> parseClosing(std::string_view line) {
    const std::optional<Closing> closing = takeClosing(line);
    return closing && closing->crc.end() == line.end() ? closing : std::nullopt;
}

// Does the closing line, with which the transaction's text ends, vouch for it?
bool isGoodAsItStands(std::string_view transaction, uint64_t lastNumber) {
    const std::string_view line = transaction.substr(transaction.rfind('\n') + 1);
    const std::optional<Closing> closing = parseClosing(line);
    return closing && (closing->number == lastNumber + 1 || (lastNumber == 0 && closing->number != 0)) &&
           closing->bytes == transaction.size() - line.size() &&
           closing->crc == hexCrc(transaction.substr(0, transaction.size() - crcDigits));
}

bool isGood(std::string_view transaction, uint64_t lastNumber) {
    return isGoodAsItStands(transaction, lastNumber) ||
           (transaction.find('\r') != std::string_view::npos &&
            isGoodAsItStands(withoutReturns(transaction), lastNumber));
}

// Without what stood, or was reserved, where the rest of a write would have come.
std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view unwritten(" \0", 2);
    const std::string_view line = text.ends_with('\n') ? text.substr(0, text.size() - 1) : text;
    const size_t end = line.find_last_not_of(unwritten) + 1;
    return end < line.size() ? line.substr(0, end) : text;
}

// Is this what is left of a write that was cut short? Whole lines of changes, and perhaps a piece of one
// more. Anything else may once have been more than that: a line that begins like a closing one or is no
// change at all, or a whole closing line with something before it or behind it.
bool isBeginning(std::string_view rest) {
    Line change;
    rest = withoutBlanks(rest);
    for (size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        const std::string_view line = withoutReturn(rest.substr(0, end));
        const size_t at = line.find(opening);
        const bool hidesClosing = at != std::string_view::npos && parseClosing(line.substr(at));
        if (line.starts_with('@') || hidesClosing || !parseLine(line, change).ok())
            return false;
        rest.remove_prefix(end + 1);
    }
    return rest.empty() ||
           (!parseClosing(withoutReturn(rest)) && !parseClosing(rest.substr(0, rest.size() - 1)));
}

// Where the text begins that the closing line at the place counts; begin when that counts more.
size_t countBack(std::string_view text, size_t begin, size_t at, uint64_t bytes) {
    for (; bytes > 0 && at > begin; --at)
        bytes -= isReturnBeforeBreak(text, at - 1) ? 0U : 1U;
    return at;
}

// The piece from begin on that the closing line at the place closes. Without a fault it may begin later.
LogPiece closePiece(std::string_view text, size_t begin, size_t at) {
    const size_t lineEnd = std::min(text.find('\n', at), text.size() - 1) + 1;
    const std::optional<Closing> closing = takeClosing(text.substr(at));
    if (!closing || closing->number == 0)
        return {begin, at, lineEnd, 0, {"the closing line is damaged"}};
    if (closing->bytes > at - begin)
        return {begin, at, lineEnd, 0, {"the closing line counts more bytes than stand before it"}};
    size_t first = at - closing->bytes;
    const size_t crcAt = endOf(text, *closing) - crcDigits;
    bool isGood = hexCrc(text.substr(first, crcAt - first)) == closing->crc;
    if (!isGood && text.substr(begin, at - begin).find('\r') != std::string_view::npos) {
        first = countBack(text, begin, at, closing->bytes);
        isGood = hexCrc(withoutReturns(text.substr(first, crcAt - first))) == closing->crc;
    }
    if (!isGood)
        return {begin, at, lineEnd, 0, {"the checksum is wrong"}};
    return {first, at, behindClosing(text, endOf(text, *closing)), closing->number, {}};
}

// A disk writes the sectors of one write in any order, and none of the next one before it was told that the
// first is done. So a transaction that is whole vouches for all before it: what is bad there was good once.
LogScan::End endWith(std::string_view rest) {
    if (isRoom(rest))
        return LogScan::End::whole;
    const bool isFollowed =
        std::ranges::any_of(splitLog(rest), [](const LogPiece& piece) { return piece.number != 0; });
    if (isFollowed)
        return LogScan::End::damaged;
    return isBeginning(rest) ? LogScan::End::torn : LogScan::End::doubtful;
}

}  // namespace

std::string hexCrc(std::string_view bytes) {
    std::array<char, crcDigits> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), crc32(bytes), 16).ptr;
    const std::string hex(digits.data(), end);
    return std::string(crcDigits - hex.size(), '0') + hex;
}

void closeTransaction(std::string& lines, uint64_t number, time_t now) {
    const size_t bytes = lines.size();
    tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> time{};
    const size_t size = std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    lines += opening;
    appendNumber(lines, number);
    lines += ' ';
    lines.append(time.data(), size);
    lines += ' ';
    appendNumber(lines, bytes);
    lines += ' ';
    lines += hexCrc(lines);
    lines += '\n';
}

LogScan scanLog(std::string_view text) {
    LogScan scan;
    scan.goodBytes = byteOrderMarkSize(text);
    size_t lines = 0;  // of the transaction being read
    for (size_t at = scan.goodBytes; at < text.size();) {
        if (text[at] != '@') {
            at = std::min(text.find('\n', at), text.size() - 1) + 1;
            ++lines;
            continue;
        }
        const std::optional<Closing> closing = takeClosing(text.substr(at));
        if (!closing)
            break;
        at = endOf(text, *closing);
        const std::string_view transaction = text.substr(scan.goodBytes, at - scan.goodBytes);
        // A room that a hand left in the middle is read over.
        if (!isGood(transaction, scan.lastNumber) &&
            !isGood(transaction.substr(leadingRoom(transaction)), scan.lastNumber))
            break;
        at = behindClosing(text, at);
        scan.lastNumber = closing->number;
        scan.goodBytes = at;
        scan.goodLines += lines;
        ++scan.transactions;
        lines = 0;
        // A lost line break, of an editor or of a write that a power cut took back, costs nothing. What is
        // no closing line's end begins no transaction, though.
        scan.lacksNewline = text[at - 1] != '\n';
        if (scan.lacksNewline)
            break;
    }
    scan.end = endWith(text.substr(scan.goodBytes));
    if (scan.end != LogScan::End::whole)
        scan.badLine = 1 + static_cast<size_t>(std::ranges::count(text.substr(0, scan.goodBytes), '\n'));
    return scan;
}

std::vector<LogPiece> splitLog(std::string_view text) {
    constexpr Result unclosed = {"the transaction has no closing line"};
    std::vector<LogPiece> pieces;
    size_t begin = byteOrderMarkSize(text);
    for (size_t at = text.find('@'); at != std::string_view::npos; at = text.find('@', at)) {
        // Elsewhere it is a value's, which may look like anything.
        if (at != byteOrderMarkSize(text) && text[at - 1] != '\n') {
            ++at;
            continue;
        }
        LogPiece piece = closePiece(text, begin, at);
        if (isRoom(text.substr(begin, piece.begin - begin)))
            piece.begin = begin;
        else
            pieces.push_back({begin, piece.begin, piece.begin, 0, unclosed});
        pieces.push_back(piece);
        begin = at = piece.end;
    }
    if (begin < text.size() && !pieces.empty() && isRoom(text.substr(begin)))
        pieces.back().end = text.size();
    else if (begin < text.size())
        pieces.push_back({begin, text.size(), text.size(), 0, unclosed});
    return pieces;
}

}  // namespace store
