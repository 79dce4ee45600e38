// Who can change a file, besides root: by its own rights, or by those of a folder above it.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

struct Weakness {
    std::filesystem::path place;  // the file, or the folder
    std::string reason;
};

// The first on the way there, links followed; nothing when only root and the user can. A file that is missing
// counts as one that whoever may write to the folder can make.
std::optional<Weakness> whatOthersCanChange(const std::filesystem::path& path, std::optional<uid_t> user);
