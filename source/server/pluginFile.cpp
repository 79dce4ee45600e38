#include "server/pluginFile.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "process/descriptor.h"

namespace {

// Of a regular file; otherwise 0.
uint64_t sizeOf(const process::Descriptor& file) {
    struct stat info {};
    const bool regular = fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode);
    return regular ? static_cast<uint64_t>(info.st_size) : 0;
}

// False when the file does not have all of it there.
template <typename Record>
bool readRecord(const process::Descriptor& file, uint64_t at, Record& record) {
    return pread(file.get(), &record, sizeof record, static_cast<off_t>(at)) ==
           static_cast<ssize_t>(sizeof record);
}

constexpr char cutShort[] = "the file is cut short";

bool isOurs(const ElfW(Ehdr) & header) {
    constexpr int ownClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ownClass &&
           header.e_phentsize == sizeof(ElfW(Phdr));
}

}  // namespace

std::optional<std::string> faultOfPluginFile(const char* path) {
    const process::Descriptor file = process::openFile(path, O_RDONLY | O_NONBLOCK);
    const uint64_t size = sizeOf(file);
    ElfW(Ehdr) header{};
    if (size == 0 || !readRecord(file, 0, header) || !isOurs(header))
        return std::nullopt;
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment{};
        const uint64_t at = header.e_phoff + i * sizeof segment;
        if (at > size || !readRecord(file, at, segment))
            return cutShort;
        const bool fits = segment.p_offset <= size && segment.p_filesz <= size - segment.p_offset;
        if (segment.p_type == PT_LOAD && !fits)
            return cutShort;
    }
    return std::nullopt;
}
