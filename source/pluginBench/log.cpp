#include "pluginBench/log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>

#include "log/logLayout.h"
#include "ostrel/plugin.h"

namespace pluginBench {
namespace {

using Level = LogLine::Level;

std::optional<Level> levelOf(std::string_view line) {
    constexpr std::pair<std::string_view, Level> levels[] = {{logLayout::errorLevel, Level::error},
                                                             {logLayout::noticeLevel, Level::notice},
                                                             {logLayout::debugLevel, Level::other},
                                                             {logLayout::otherLevel, Level::other}};
    const std::string_view tag = line.substr(0, line.find(' '));
    for (const auto& [levelTag, level] : levels) {
        if (tag == levelTag)
            return level;
    }
    return std::nullopt;
}

// Takes what stands before the mark, and the mark; nothing when there is none.
std::optional<std::string_view> takeUntil(std::string_view& rest, std::string_view mark) {
    const size_t end = rest.find(mark);
    if (end == std::string_view::npos)
        return std::nullopt;
    std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end + mark.size());
    return taken;
}

LogLine parseLine(std::string_view line) {
    constexpr std::string_view gap = logLayout::textGap;
    constexpr std::string_view errorTag = logLayout::errorTag;
    const std::optional<Level> level = levelOf(line);
    std::string_view rest = line;
    LogLine parsed;
    const std::optional<std::string_view> time = takeUntil(rest, ":");
    std::optional<std::string_view> module = takeUntil(rest, ":");
    const std::optional<std::string_view> number = takeUntil(rest, ":");
    std::optional<std::string_view> function = takeUntil(rest, logLayout::functionEnd);
    const size_t place = std::max(logLayout::prefixWidth, line.size() - rest.size());
    if (!level || !time || !module || !number || !function ||
        line.substr(std::min(place, line.size()), gap.size()) != gap) {
        parsed.text = line;
        return parsed;
    }
    parsed.level = *level;
    parsed.module = *module;
    parsed.function = *function;
    line.remove_prefix(place + gap.size());
    if (line.starts_with(errorTag))
        line.remove_prefix(errorTag.size());
    parsed.text = line;
    return parsed;
}

}  // namespace

std::string described(const LogLine& line) {
    return line.level == Level::none ? line.text : line.module + ':' + line.function + "(): " + line.text;
}

std::string shown(const LogLine& line) {
    const char* level = line.level == Level::error ? "ERROR  " : line.level == Level::none ? "" : "notice ";
    return level + described(line);
}

std::vector<LogLine> parseLog(std::string_view text) {
    std::vector<LogLine> lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(parseLine(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

Log::Log() : file_(memfd_create("log", MFD_CLOEXEC)) {
    if (file_.get() < 0)
        throw std::system_error(errno, std::generic_category(), "a file in memory");
}

void Log::take() const {
    std::fflush(stdout);
    // A script that writes to /dev/stderr truncates it.
    fcntl(file_.get(), F_SETFL, O_APPEND);
    dup2(file_.get(), STDOUT_FILENO);
    dup2(file_.get(), STDERR_FILENO);
    ostrelShowPrefix(1);
}

size_t Log::size() const {
    std::fflush(stdout);
    struct stat status {};
    fstat(file_.get(), &status);
    return static_cast<size_t>(status.st_size);
}

std::vector<LogLine> Log::lines(size_t begin, size_t end) const {
    end = std::min(end, size());
    begin = begin > end ? 0 : begin;
    std::string text(end - begin, '\0');
    const ssize_t length = pread(file_.get(), text.data(), text.size(), static_cast<off_t>(begin));
    text.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return parseLog(text);
}

std::string Log::lastError(size_t begin) const {
    std::string text;
    for (LogLine& line : lines(begin)) {
        if (line.level == Level::error)
            text = std::move(line.text);
    }
    return text;
}

}  // namespace pluginBench
