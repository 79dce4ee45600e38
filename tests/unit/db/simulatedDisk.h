// A file system in memory that knows what a power cut may leave of it: of each file and folder what was
// forced, and of the changes since then any that a disk may have made.
#pragma once

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "db/files.h"

class SimulatedDisk {
public:
    SimulatedDisk() { names_["/"] = forcedNames_["/"] = std::make_shared<Node>(Node{.isFolder = true}); }

    static inline SimulatedDisk* current = nullptr;
    static const store::FileCalls files;  // of the current disk; they read and write a piece at a time

    // What a power cut may leave, each as a disk of its own.
    void forEachCut(const std::function<void(const SimulatedDisk&)>& use) const {
        Names names = forcedNames_;
        for (size_t made = 0;; ++made) {
            bool isChanged = false;
            for (const auto& [path, node] : names) {
                if (node->unforced.empty())
                    continue;
                isChanged = true;
                // clang 14 does not capture what a binding names.
                forEachContent(*node, [&, changed = node](const std::string& bytes) {
                    use(after(names, changed, bytes));
                });
            }
            if (!isChanged)
                use(after(names, nullptr, ""));
            if (made == unforcedNames_.size())
                break;
            apply(unforcedNames_[made], names);
        }
    }

    // From outside, durable at once. A file that is not there is empty, and empty is not there.
    std::string read(const std::string& path) const {
        const NodePtr node = find(path);
        return node ? node->bytes : "";
    }

    void write(const std::string& path, const std::string& bytes) {
        const NodePtr node = bytes.empty() ? nullptr : std::make_shared<Node>(Node{false, bytes, bytes, {}});
        apply({{path, node}}, names_);
        apply({{path, node}}, forcedNames_);
    }

    // Called before a change is forced; then more may be lost than just after any other change.
    std::function<void()> beforeForce;
    // Calls fail from the given one on (counted from 1). A failing write leaves half of its bytes, unless it
    // is only interrupted.
    struct Faults {
        int first = 0;  // 0: none fails
        int last = 0;
        int error = 0;   // errno
        int calls = 0;   // made so far
        int forced = 0;  // fsync and fdatasync among them

        bool hasFailed() const { return first != 0 && calls >= first; }
    } faults;
    // Of sectors, old and new: where there are more, after a power cut, a sample is tried.
    size_t mostMixes = 256;
    bool hasLinks = true;  // hard ones
    std::map<std::string, std::string> symlinks;
    bool isLockedElsewhere = false;
    bool isReadOnly = false;  // nothing can be created
    std::function<void(const std::string&)> beforeWrite;
    // For the bytes of all files; at first without a limit.
    size_t capacity = SIZE_MAX;

    size_t usedBytes() const {
        std::set<NodePtr> nodes;
        for (const auto& [path, node] : names_)
            nodes.insert(node);
        size_t used = 0;
        for (const NodePtr& node : nodes)
            used += node->bytes.size();
        return used;
    }
    size_t freeBytes() const {
        return capacity == SIZE_MAX ? capacity : capacity - std::min(usedBytes(), capacity);
    }
    // With all that is in it, durably.
    void removeFolder(const std::string& folder) {
        for (Names* names : {&names_, &forcedNames_})
            std::erase_if(*names, [&](const auto& entry) {
                return entry.first == folder || entry.first.starts_with(folder + '/');
            });
    }
    void addFolder(const std::string& folder) {
        for (size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
            const NodePtr node = std::make_shared<Node>(Node{.isFolder = true});
            names_.try_emplace(folder.substr(0, slash), node);
            forcedNames_.try_emplace(folder.substr(0, slash), node);
            if (slash == std::string::npos)
                return;
        }
    }
    bool isFolder(const std::string& path) const { return find(path) && find(path)->isFolder; }
    bool isFile(const std::string& path) const { return find(path) && !find(path)->isFolder; }
    // From outside, in the same file.
    void change(const std::string& path, const std::string& bytes) {
        find(path)->bytes = find(path)->forced = bytes;
        find(path)->unforced.clear();
    }
    mode_t modeOf(const std::string& path) const { return find(path)->mode; }
    void setMode(const std::string& path, mode_t mode) { find(path)->mode = mode; }

private:
    struct Change {
        size_t at = 0;
        std::string bytes{};
        bool isCut = false;  // the file ends at at
    };
    struct Node {
        bool isFolder = false;
        std::string bytes{};
        std::string forced{};
        std::vector<Change> unforced{};
        mode_t mode = 0644;
    };
    using NodePtr = std::shared_ptr<Node>;
    // Of one folder when it is a change, which is made whole or not at all; null: the name goes.
    using Names = std::map<std::string, NodePtr>;
    struct Handle {
        NodePtr node;
        std::string path;
        size_t at = 0;
    };

    static std::string applied(std::string bytes, const Change& change, size_t size = std::string::npos) {
        size = std::min(size, change.bytes.size());
        bytes.resize(change.isCut ? change.at : std::max(bytes.size(), change.at + size));
        return bytes.replace(change.at, size, change.bytes, 0, size);
    }

    static std::string flushed(const Node& node) {
        std::string bytes = node.forced;
        for (const Change& change : node.unforced)
            bytes = applied(std::move(bytes), change);
        return bytes;
    }

    // A disk writes sectors whole and in any order, and a file's size apart from them; where the file was
    // shorter, a sector that is not written yet is empty. Memory may go to the disk at any byte of a write.
    void forEachContent(const Node& node, const std::function<void(const std::string&)>& use) const {
        std::set<std::string> contents = {node.forced};
        std::vector<std::string> versions = {node.forced};
        for (const Change& change : node.unforced) {
            for (size_t size = 0; size < change.bytes.size(); ++size) {
                // One place of a run of equal bytes is enough.
                if (size == 0 || change.bytes[size] != change.bytes[size - 1])
                    contents.insert(applied(versions.back(), change, size));
            }
            versions.push_back(applied(versions.back(), change));
        }
        std::set<size_t> sizes;
        for (const std::string& version : versions)
            sizes.insert(version.size());
        for (const size_t size : sizes)
            addMixes(sectorsOf(versions, size), size, contents);
        std::ranges::for_each(contents, use);
    }

    // Of each sector what it may hold.
    using Sectors = std::vector<std::vector<std::string>>;
    static Sectors sectorsOf(const std::vector<std::string>& versions, size_t size) {
        constexpr size_t sector = 512;
        Sectors sectors;
        for (size_t at = 0; at < size; at += sector) {
            std::set<std::string> contents;
            for (const std::string& version : versions) {
                std::string content = at < version.size() ? version.substr(at, sector) : "";
                content.resize(std::min(sector, size - at));
                contents.insert(std::move(content));
            }
            sectors.emplace_back(contents.begin(), contents.end());
        }
        return sectors;
    }

    void addMixes(const Sectors& sectors, size_t size, std::set<std::string>& contents) const {
        static std::minstd_rand chance;
        size_t mixes = 1;
        for (const auto& choices : sectors)
            mixes = std::min(mixes * choices.size(), mostMixes + 1);
        for (size_t mix = 0; mix < std::min(mixes, mostMixes); ++mix) {
            std::string bytes;
            bytes.reserve(size);
            size_t rest = mix;
            for (const auto& choices : sectors) {
                bytes += choices[mixes <= mostMixes ? rest % choices.size() : chance() % choices.size()];
                rest /= choices.size();
            }
            contents.insert(std::move(bytes));
        }
    }

    static void apply(const Names& changes, Names& names) {
        for (const auto& [path, node] : changes) {
            if (node)
                names[path] = node;
            else
                names.erase(path);
        }
    }

    // Of the other files, all that was changed may be there: they were changed before.
    SimulatedDisk after(const Names& names, const NodePtr& changed, const std::string& bytes) const {
        SimulatedDisk disk;
        std::map<NodePtr, NodePtr> copies;
        for (const auto& [path, node] : names) {
            if (path != "/" && !disk.find(store::directoryOf(path)))
                continue;  // nothing leads to it
            NodePtr& copy = copies[node];
            if (!copy) {
                const std::string kept = node == changed ? bytes : flushed(*node);
                copy = std::make_shared<Node>(Node{node->isFolder, kept, kept, {}, node->mode});
            }
            disk.names_[path] = disk.forcedNames_[path] = copy;
        }
        return disk;
    }

    NodePtr find(const std::string& path) const {
        if (const auto link = symlinks.find(path); link != symlinks.end())
            return find(link->second);
        const auto found = names_.find(path);
        return found != names_.end() ? found->second : nullptr;
    }

    int change(Node& node, Change change) {
        node.bytes = applied(std::move(node.bytes), change);
        node.unforced.push_back(std::move(change));
        return 0;
    }

    int name(Names changes) {
        apply(changes, names_);
        unforcedNames_.push_back(std::move(changes));
        return 0;
    }

    void force(Handle& file) {
        if (beforeForce)
            beforeForce();
        file.node->forced = flushed(*file.node);
        file.node->unforced.clear();
        std::erase_if(unforcedNames_, [&](const Names& changes) {
            const bool isHere = store::directoryOf(changes.begin()->first) == file.path;
            if (isHere)
                apply(changes, forcedNames_);
            return isHere;
        });
    }

    // The table's calls.
    struct Calls {
        static int failure(int error) {
            errno = error;
            return -1;
        }
        static bool fails() {
            Faults& faults = current->faults;
            ++faults.calls;
            const bool isFailing = faults.hasFailed() && faults.calls <= faults.last;
            errno = isFailing ? faults.error : errno;
            return isFailing;
        }
        template <auto call>
        static constexpr auto tried = [](auto... arguments) { return fails() ? -1 : call(arguments...); };

        static int open(const char* path, int flags, mode_t mode) {
            NodePtr node = current->find(path);
            if (node && (flags & O_EXCL) != 0)
                return failure(EEXIST);
            if (!node && ((flags & O_CREAT) == 0 || !current->find(store::directoryOf(path))))
                return failure(ENOENT);
            if (!node && current->isReadOnly)
                return failure(EROFS);
            if (!node) {
                node = std::make_shared<Node>();
                node->mode = mode;
                current->name({{path, node}});
            }
            if ((flags & O_TRUNC) != 0 && !node->bytes.empty())
                current->change(*node, {.isCut = true});
            current->open_[++current->lastOpen_] = {node, path};
            return current->lastOpen_;
        }
        static int close(int fd) { return current->open_.erase(fd) == 1 ? 0 : failure(EBADF); }
        static ssize_t read(int fd, void* buffer, size_t room) {
            Handle& file = current->open_.at(fd);
            const size_t size =
                file.node->bytes.copy(static_cast<char*>(buffer), std::min(room, size_t{40000}), file.at);
            file.at += size;
            return static_cast<ssize_t>(size);
        }
        static ssize_t write(int fd, const void* bytes, size_t size) {
            Handle& file = current->open_.at(fd);
            const size_t before = file.node->bytes.size();
            const ssize_t taken = positionedWrite(fd, bytes, size, static_cast<off_t>(file.at));
            file.at += file.node->bytes.size() - before;  // also half of what failed
            return taken;
        }
        static ssize_t positionedWrite(int fd, const void* bytes, size_t size, off_t place) {
            if (current->beforeWrite)
                current->beforeWrite(current->open_.at(fd).path);
            const bool isFailing = fails();
            const int error = errno;
            Node& node = *current->open_.at(fd).node;
            const auto at = static_cast<size_t>(place);
            size = std::min(size, size_t{600});
            const size_t free = isFailing ? size : current->freeBytes();
            // Where the file has bytes already, it needs no more.
            const size_t room = free + node.bytes.size() - std::min(at, node.bytes.size());
            if (free < size && room < size && !isFailing) {
                errno = ENOSPC;
                if (room == 0)
                    return -1;
                size = room;
            }
            const size_t taken = !isFailing ? size : error == EINTR ? 0 : size / 2;
            current->change(node, {.at = at, .bytes = {static_cast<const char*>(bytes), taken}});
            errno = error;
            return isFailing ? -1 : static_cast<ssize_t>(size);
        }
        // What could not be forced is dropped, and not tried again by the next call.
        static int force(int fd) {
            Handle& file = current->open_.at(fd);
            ++current->faults.forced;
            if (!fails())
                return current->force(file), 0;
            if (errno != EINTR)
                file.node->unforced.clear();
            return -1;
        }
        static int truncate(int fd, off_t size) {
            return current->change(*current->open_.at(fd).node,
                                   {.at = static_cast<size_t>(size), .isCut = true});
        }
        static int tell(const NodePtr& node, struct stat* status) {
            if (!node)
                return failure(ENOENT);
            *status = {};
            status->st_ino = reinterpret_cast<ino_t>(node.get());
            status->st_size = static_cast<off_t>(node->bytes.size());
            status->st_mode = (node->isFolder ? S_IFDIR : S_IFREG) | node->mode;
            return 0;
        }
        static int fchown(int, uid_t, gid_t) { return failure(EPERM); }
        static int fchmod(int fd, mode_t mode) {
            current->open_.at(fd).node->mode = mode;
            return 0;
        }
        static int statvfs(const char*, struct statvfs* status) {
            *status = {};
            status->f_bavail = current->freeBytes();
            status->f_frsize = 1;
            return 0;
        }
        static ssize_t readlink(const char* path, char* target, size_t room) {
            const auto link = current->symlinks.find(path);
            return link != current->symlinks.end() ? static_cast<ssize_t>(link->second.copy(target, room))
                                                   : failure(EINVAL);
        }
        static int fstat(int fd, struct stat* status) { return tell(current->open_.at(fd).node, status); }
        static int stat(const char* path, struct stat* status) { return tell(current->find(path), status); }
        static int flock(int, int) { return current->isLockedElsewhere ? failure(EWOULDBLOCK) : 0; }
        static int rename(const char* from, const char* to) {
            const NodePtr node = current->find(from);
            return node ? current->name({{from, nullptr}, {to, node}}) : failure(ENOENT);
        }
        static int link(const char* from, const char* to) {
            const NodePtr node = current->find(from);
            if (!current->hasLinks || !node || current->find(to))
                return failure(!current->hasLinks ? EPERM : node ? EEXIST : ENOENT);
            return current->name({{to, node}});
        }
        static int unlink(const char* path) {
            return current->find(path) ? current->name({{path, nullptr}}) : failure(ENOENT);
        }
        static int mkdir(const char* path, mode_t) {
            return current->find(store::directoryOf(path))
                       ? current->name({{path, std::make_shared<Node>(Node{.isFolder = true})}})
                       : failure(ENOENT);
        }
        static constexpr store::FileCalls table = {
            tried<open>,   close,       tried<read>,     write,        positionedWrite,
            force,         force,       tried<truncate>, tried<fstat>, fchown,
            tried<fchmod>, tried<stat>, tried<statvfs>,  readlink,     tried<flock>,
            tried<rename>, tried<link>, tried<unlink>,   tried<mkdir>};
    };

    Names names_;
    Names forcedNames_;
    std::vector<Names> unforcedNames_;
    std::map<int, Handle> open_;
    int lastOpen_ = 100;
};

inline const store::FileCalls SimulatedDisk::files = Calls::table;
