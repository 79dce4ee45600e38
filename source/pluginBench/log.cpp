#include "pluginBench/log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace pluginBench {
namespace {

// What begins an error's line in the log, and what is shown for it.
constexpr std::string_view errorTag = "\033[41m**** ERROR ****\033[m ";
constexpr std::string_view shownTag = "ERROR ";

}  // namespace

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
}

std::size_t Log::size() const {
    std::fflush(stdout);
    struct stat status {};
    fstat(file_.get(), &status);
    return static_cast<std::size_t>(status.st_size);
}

std::string Log::since(std::size_t begin) const {
    const std::size_t end = size();
    begin = begin > end ? 0 : begin;
    std::string text(end - begin, '\0');
    ssize_t length = pread(file_.get(), text.data(), text.size(), static_cast<off_t>(begin));
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    for (std::size_t at = 0; (at = text.find(errorTag, at)) != std::string::npos;)
        text.replace(at, errorTag.size(), shownTag);
    return text;
}

std::string Log::lastError(std::size_t begin) const {
    std::string text = since(begin);
    std::size_t error = text.rfind(shownTag);
    if (error == std::string::npos)
        return {};
    error += shownTag.size();
    return text.substr(error, text.find('\n', error) - error);
}

}  // namespace pluginBench
