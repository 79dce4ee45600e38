#include "ctl/rights.h"

#include <sys/stat.h>

#include <fstream>
#include <list>

namespace fs = std::filesystem;

namespace {

constexpr int mostLinks = 40;
constexpr uid_t allUsers = 4294967295;

// In a namespace that has not all users, the others look alike: then of them nothing can be said.
std::optional<uid_t> unknownUser() {
    uid_t first = 1;
    uid_t outside = 1;
    uid_t count = 0;
    std::ifstream("/proc/self/uid_map") >> first >> outside >> count;
    if (first == 0 && count == allUsers)
        return std::nullopt;
    uid_t unknown = 0;
    std::ifstream("/proc/sys/kernel/overflowuid") >> unknown;
    return unknown;
}

class Way {
public:
    explicit Way(std::optional<uid_t> user) : user_(user), unknown_(unknownUser()) {}

    std::optional<Weakness> follow(const fs::path& path) {
        std::list<fs::path> rest(path.begin(), path.end());
        fs::path place = "/";
        // In a folder that is open, only what is its owner's own stays that.
        bool isOpen = false;
        for (int links = 0; !rest.empty() && links < mostLinks;) {
            const fs::path name = rest.front();
            rest.pop_front();
            const fs::path next = name == ".." ? place.parent_path() : place / name;
            struct stat info {};
            if (lstat(next.c_str(), &info) != 0)
                return isOpen ? std::optional(Weakness{place, "is open: everybody can make " + next.string()})
                              : std::nullopt;
            if (!isTrusted(info.st_uid))
                return Weakness{next, "is of user " + std::to_string(info.st_uid)};
            if (S_ISLNK(info.st_mode)) {
                ++links;
                std::error_code error;
                const fs::path target = fs::read_symlink(next, error);
                rest.insert(rest.begin(), target.begin(), target.end());
                continue;
            }
            // In a sticky folder others can add files, but not replace any.
            isOpen = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
            const bool isSticky = S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0 && !rest.empty();
            if (isOpen && !isSticky)
                return Weakness{next, (info.st_mode & S_IWOTH) != 0
                                          ? "can be written by everybody"
                                          : "can be written by group " + std::to_string(info.st_gid)};
            place = next;
        }
        return std::nullopt;
    }

private:
    bool isTrusted(uid_t owner) const { return owner == 0 || owner == user_ || owner == unknown_; }

    std::optional<uid_t> user_;
    std::optional<uid_t> unknown_;
};

}  // namespace

std::optional<Weakness> whatOthersCanChange(const fs::path& path, std::optional<uid_t> user) {
    return Way(user).follow(path);
}
