#include "db/links.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <utility>

namespace store {
namespace {

constexpr int mostLinks = 40;

// Takes the first part off the path; empty when none is left.
std::string takePart(std::string& path) {
    const size_t begin = std::min(path.find_first_not_of('/'), path.size());
    const size_t end = std::min(path.find('/', begin), path.size());
    std::string part = path.substr(begin, end - begin);
    path.erase(0, end);
    return part;
}

// Of a place without links, never above top.
void goUp(std::string& place, const std::string& top) {
    const size_t slash = place.rfind('/');
    const bool isName = place.size() > top.size() && place != ".." && !place.ends_with("/..");
    if (isName)
        place.erase(slash != std::string::npos && slash >= top.size() ? slash : top.size());
    else if (top.empty() && !place.starts_with('/'))
        place += place.empty() ? ".." : "/..";
}

std::optional<std::string> linkTarget(const FileCalls& calls, const std::string& place) {
    std::array<char, PATH_MAX> target{};
    const ssize_t size = calls.readlink(place.c_str(), target.data(), target.size());
    if (size < 0)
        return std::nullopt;
    return std::string(target.data(), static_cast<size_t>(size));
}

}  // namespace

std::optional<std::string> followLinks(const FileCalls& calls, const std::string& path,
                                       const std::string& root) {
    std::string rest = path.substr(root.size());
    const std::string top = root.empty() && rest.starts_with('/') ? "/" : root;
    std::string place = top;
    int links = 0;
    for (std::string part = takePart(rest); !part.empty(); part = takePart(rest)) {
        if (part == ".")
            continue;
        if (part == "..") {
            goUp(place, top);
            continue;
        }
        std::string next = place;
        if (!next.empty() && !next.ends_with('/'))
            next += '/';
        next += part;
        const std::optional<std::string> target = linkTarget(calls, next);
        if (!target) {
            place = std::move(next);
            continue;
        }
        if (++links > mostLinks) {
            errno = ELOOP;
            return std::nullopt;
        }
        if (target->starts_with('/'))
            place = root.empty() ? "/" : root;
        rest.insert(0, 1, '/').insert(0, *target);
    }
    return place;
}

}  // namespace store
