// The log, which is the process's standard output, and the small utilities that plug-ins share with the
// server.
#include "common/ostrelUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/logLock.h"
#include "log/logLayout.h"
#include "process/closers.h"

constexpr char logModule[] = "ostrelUtils";

int printMask = 7;
int showPrefix = 0;

namespace {

constexpr size_t prefixCapacity = 255;

// A line's prefix, built in place; a piece that does not fit is cut.
class Prefix {
public:
    void add(const char* format, ...) OSTREL_PRINTF(2, 3) {
        va_list arguments;
        va_start(arguments, format);
        const int wanted = std::vsnprintf(text_.data() + length_, text_.size() - length_, format, arguments);
        va_end(arguments);
        if (wanted > 0)
            length_ = std::min(length_ + static_cast<size_t>(wanted), prefixCapacity);
    }

    void pad() {
        while (length_ < logLayout::prefixWidth)
            text_[length_++] = ' ';
        text_[length_] = '\0';
    }

    const char* text() const { return text_.data(); }

private:
    std::array<char, prefixCapacity + 1> text_{};
    size_t length_ = 0;
};

const char* levelTag(int level) {
    switch (level) {
        case logLevel::error:
            return logLayout::errorLevel;
        case logLevel::notice:
            return logLayout::noticeLevel;
        case logLevel::debug:
            return logLayout::debugLevel;
        default:
            return logLayout::otherLevel;
    }
}

void printPrefix(int level, const char* file, int line, const char* function) {
    timeval now{};
    gettimeofday(&now, nullptr);

    Prefix prefix;
    prefix.add("%s ", levelTag(level));
    prefix.add("%d.%03d:", static_cast<int32_t>(now.tv_sec), static_cast<int>(now.tv_usec / 1000));
    if (file != nullptr) {
        const char* slash = std::strrchr(file, '/');
        prefix.add("%s:", slash != nullptr ? slash + 1 : file);
    } else {
        prefix.add("-:");
    }
    prefix.add("%d:", line);
    if (function != nullptr)
        prefix.add("%s%s", function, logLayout::functionEnd);
    else
        prefix.add("-:");
    prefix.pad();
    std::printf("%s%s", prefix.text(), logLayout::textGap);
}

// The command for a shell that has the soft limit of descriptors which the daemon was started with, as the
// programs that the plug-in headers start. The status is that of a shell with the command alone.
std::string withOldLimit(const char* command) {
    const char* limit = std::getenv(descriptorLimitVariable);
    if (limit == nullptr || *limit == '\0' || limit[std::strspn(limit, "0123456789")] != '\0')
        return command;
    std::string quoted;
    for (const char* at = command; *at != '\0'; ++at) {
        if (*at == '\'')
            quoted += "'\\'";
        quoted += *at;
        if (*at == '\'')
            quoted += '\'';
    }
    return std::string("ulimit -S -n ") + limit + " 2>/dev/null; exec /bin/sh -c '" + quoted + "'";
}

}  // namespace

const char* printable(const char* text) { return text != nullptr ? text : "(null)"; }

void ostrelPrintLine(int level, const char* file, int line, const char* function, const char* format, ...) {
    if ((level & printMask) == 0)
        return;
    const LogLock lock;
    if (showPrefix != 0)
        printPrefix(level, file, line, function);
    if (level == logLevel::error)
        std::fputs(logLayout::errorTag, stdout);
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::putchar('\n');
    std::fflush(stdout);
}

void ostrelSetPrintLevel(int mask) { printMask = mask; }

void ostrelShowPrefix(int on) { showPrefix = on; }

int openLogFile(const char* path) {
    // Appends: programs that plug-ins started may still write to a file that is emptied here.
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
}

void useLogFile(int fd, const char* path) {
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    if (std::strcmp(path, "/dev/null") != 0)
        chmod(path, 0644);
}

int OpenLog(char* path) {
    if (path == nullptr)
        return 0;
    const int fd = openLogFile(path);
    if (fd < 0)
        std::exit(0);
    useLogFile(fd, path);
    // The open itself lands on 1 or 2 when that descriptor was closed.
    if (fd > STDERR_FILENO)
        close(fd);
    return 1;
}

void Die(const char* message) {
    std::printf(logLayout::fatalFormat, printable(message));
    std::fflush(stdout);
    std::exit(-1);
}

int ostrelExecute(const char* format, ...) {
    std::array<char, 511> command{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command.data(), command.size(), format, arguments);
    va_end(arguments);

    OSTREL_LOG(logLevel::notice, "exec: [%s]", command.data());
    const int status = std::system(withOldLimit(command.data()).c_str());
    if (status != 0)
        OSTREL_LOG(logLevel::error, "error: [%s]: %d", command.data(), status);
    return status;
}

int ostrelWriteFile(const char* path, const char* text) {
    const process::File file(path != nullptr ? std::fopen(path, "we") : nullptr);
    if (!file) {
        OSTREL_LOG(logLevel::error, "error: opening file %s", printable(path));
        return 0;
    }
    if (text != nullptr)
        std::fputs(text, file.get());
    return 1;
}

unsigned int ostrelStringToOwner(const char* text) {
    unsigned int owner = 0;
    if (text == nullptr)
        return owner;
    for (unsigned int i = 0; i < 4 && text[i] != '\0'; ++i)
        owner |= static_cast<unsigned int>(static_cast<unsigned char>(text[i])) << (8 * i);
    return owner;
}

void TimeMark(const char* label) {
    static int64_t lastSeconds = 0;
    static int64_t lastMicroseconds = 0;

    timeval now{};
    gettimeofday(&now, nullptr);
    const int64_t elapsed = (now.tv_usec - lastMicroseconds) / 1000 + (now.tv_sec - lastSeconds) * 1000;
    lastSeconds = now.tv_sec;
    lastMicroseconds = now.tv_usec;
    OSTREL_LOG(logLevel::notice, "Mark :%s %d", printable(label), static_cast<int32_t>(elapsed));
}
