#include "ctl/batchFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/commandFailure.h"
#include "process/closers.h"

namespace {

[[noreturn]] void fail(const std::string& path) { failUsage(path + ": " + std::strerror(errno)); }

std::string readAll(std::FILE* file, const std::string& path) {
    std::string text;
    std::array<char, 4096> piece{};
    while (const size_t size = std::fread(piece.data(), 1, piece.size(), file))
        text.append(piece.data(), size);
    if (std::ferror(file) != 0)
        fail(path);
    return text;
}

}  // namespace

std::string readBatchFile(const std::string& path) {
    if (path == "-")
        return readAll(stdin, "standard input");
    const process::File file(std::fopen(path.c_str(), "re"));
    if (!file)
        fail(path);
    return readAll(file.get(), path);
}
