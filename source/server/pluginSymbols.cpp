#include "server/pluginSymbols.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "process/descriptor.h"
#include "text/characters.h"

namespace {

// More than any plug-in has: what a damaged file claims is not to fill the memory.
constexpr uint64_t largestTable = 16U << 20U;
constexpr ptrdiff_t longestSymbol = 4096;

class File {
public:
    // What is no regular file may have no end, or nothing to wait for.
    explicit File(const std::string& path) : fd_(process::openFile(path.c_str(), O_RDONLY | O_NONBLOCK)) {
        struct stat status {};
        if (fd_ && fstat(fd_.get(), &status) == 0 && S_ISREG(status.st_mode))
            size_ = static_cast<uint64_t>(status.st_size);
    }

    // False when not all of it is there.
    bool read(void* bytes, uint64_t size, uint64_t offset) const {
        return offset <= size_ && size <= size_ - offset &&
               pread(fd_.get(), bytes, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
    }

    // Empty when it is not there or too large. What is behind its last whole entry is left out.
    template <typename Entry>
    std::vector<Entry> table(uint64_t offset, uint64_t size) const {
        if (size > largestTable || size > size_)
            return {};
        std::vector<Entry> entries(size / sizeof(Entry));
        if (!read(entries.data(), entries.size() * sizeof(Entry), offset))
            return {};
        return entries;
    }

private:
    const process::Descriptor fd_;
    uint64_t size_ = 0;
};

std::vector<Elf64_Shdr> sectionsOf(const File& file) {
    Elf64_Ehdr header{};
    if (!file.read(&header, sizeof header, 0) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_shentsize != sizeof(Elf64_Shdr))
        return {};
    return file.table<Elf64_Shdr>(header.e_shoff, uint64_t{header.e_shnum} * sizeof(Elf64_Shdr));
}

bool isExported(const Elf64_Sym& symbol) {
    const auto visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    return symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL &&
           (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

bool isShared(const Elf64_Sym& symbol) {
    const auto binding = ELF64_ST_BIND(symbol.st_info);
    return binding == STB_WEAK || binding == STB_GNU_UNIQUE;
}

// What every plug-in has by right. Linkers make the rest of them; a symbol without a section is the name of
// a version.
bool isUsual(const Elf64_Sym& symbol, std::string_view name) {
    constexpr std::string_view usual[] = {"ostrelGetIoFuncs",
                                          "ostrelClientEssentialFunc",
                                          "_init",
                                          "_fini",
                                          "__bss_start",
                                          "_edata",
                                          "_end",
                                          "_etext"};
    return name.empty() || symbol.st_shndx == SHN_ABS || std::ranges::find(usual, name) != std::end(usual);
}

std::optional<std::string_view> nameAt(const std::vector<char>& names, size_t place) {
    if (place >= names.size())
        return std::nullopt;
    const auto begin = names.begin() + static_cast<ptrdiff_t>(place);
    const auto limit = begin + std::min(longestSymbol, names.end() - begin);
    const auto end = std::find(begin, limit, '\0');
    return end == limit ? std::nullopt : std::optional(std::string_view(begin, end));
}

std::string escaped(std::string_view name) {
    std::string text;
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte > ' ' && byte < 0x7F) {
            text += character;
            continue;
        }
        store::appendHex(text, character);
    }
    return text;
}

// Of the C++ library: there may be hundreds, which follow from a build that hides nothing.
bool isLibrarys(const std::string& name) {
    constexpr std::string_view beginnings[] = {"_ZSt",      "_ZNSt",      "_ZNKSt", "_ZNSa",
                                               "_ZN9__gnu", "_ZNK9__gnu", "_ZZ",    "_ZT"};
    return std::ranges::any_of(beginnings, [&](std::string_view text) { return name.starts_with(text); });
}

// The plug-in's own first.
void order(std::vector<std::string>& names) {
    std::ranges::sort(names, {}, [](const std::string& name) { return std::pair(isLibrarys(name), name); });
    names.erase(std::unique(names.begin(), names.end()), names.end());
}

}  // namespace

std::optional<ExtraSymbols> readExtraSymbols(const std::string& path) {
    const File file(path);
    const std::vector<Elf64_Shdr> sections = sectionsOf(file);
    auto section = std::ranges::find(sections, Elf64_Word{SHT_DYNSYM}, &Elf64_Shdr::sh_type);
    if (section == sections.end() || section->sh_link >= sections.size())
        return std::nullopt;
    const auto symbols = file.table<Elf64_Sym>(section->sh_offset, section->sh_size);
    const Elf64_Shdr& texts = sections[section->sh_link];
    const auto names = file.table<char>(texts.sh_offset, texts.sh_size);
    std::optional<ExtraSymbols> extra;
    uint64_t length = 0;
    for (const Elf64_Sym& symbol : symbols) {
        const std::optional<std::string_view> name = nameAt(names, symbol.st_name);
        if (!name || (length += name->size()) > largestTable)
            return std::nullopt;
        if (!extra)
            extra.emplace();
        if (isExported(symbol) && !isUsual(symbol, *name))
            (isShared(symbol) ? extra->shared : extra->plain).push_back(escaped(*name));
    }
    if (extra) {
        order(extra->plain);
        order(extra->shared);
    }
    return extra;
}

std::string blankSeparated(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}
