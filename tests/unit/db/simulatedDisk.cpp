#include "simulatedDisk.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

SimulatedDisk* simulatedDisk = nullptr;

void SimulatedDisk::apply(const Change& change, size_t size, std::string& bytes) {
    if (change.isCut) {
        bytes.resize(change.at);
        return;
    }
    bytes.resize(std::max(bytes.size(), change.at + size));
    bytes.replace(change.at, size, change.bytes, 0, size);
}

void SimulatedDisk::forEachContent(const Node& node, const std::function<void(const std::string&)>& use) {
    constexpr size_t sector = 512;
    std::string before = node.forced;
    for (const Change& change : node.unforced) {
        // Cut at every byte; of a long one at its ends and here and there between.
        const size_t all = change.bytes.size();
        const size_t ends = all < 8192 ? 4096 : 20;
        for (size_t size = 0; size <= all; ++size) {
            if (size > ends && all - size > ends && size % 1999 != 0)
                continue;
            std::string bytes = before;
            apply(change, size, bytes);
            use(bytes);
        }
        apply(change, change.bytes.size(), before);
    }
    // A later change, or a later sector of one, came first.
    for (const Change& lost : node.unforced) {
        const size_t step = lost.bytes.size() > 16 * sector ? 8 * sector : sector;
        for (size_t at = 0; at < std::max(lost.bytes.size(), size_t{1}); at += step) {
            std::string bytes = node.forced;
            for (const Change& change : node.unforced) {
                Change rest = change;
                if (&change == &lost && change.isCut)
                    continue;
                if (&change == &lost)
                    std::fill_n(rest.bytes.begin() + static_cast<ptrdiff_t>(at),
                                std::min(sector, rest.bytes.size() - at), '\0');
                apply(rest, rest.bytes.size(), bytes);
            }
            use(bytes);
        }
    }
    use(node.forced);
}

void SimulatedDisk::apply(const Naming& naming, Names& names) {
    for (const auto& [path, node] : naming.names) {
        if (node)
            names[path] = node;
        else
            names.erase(path);
    }
}

// Of the other files, all that was changed may be there: they were changed before.
SimulatedDisk SimulatedDisk::after(const Names& names, const NodePtr& changed,
                                   const std::string& bytes) const {
    SimulatedDisk disk;
    std::map<NodePtr, NodePtr> copies;
    for (const auto& [path, node] : names) {
        if (path != "/" && disk.names_.count(store::directoryOf(path)) == 0)
            continue;  // nothing leads to it
        NodePtr& copy = copies[node];
        if (!copy) {
            copy = std::make_shared<Node>(Node{.isFolder = node->isFolder});
            copy->forced = node == changed ? bytes : node->forced;
            for (const Change& change : node == changed ? std::vector<Change>() : node->unforced)
                apply(change, change.bytes.size(), copy->forced);
            copy->bytes = copy->forced;
        }
        disk.names_[path] = disk.forcedNames_[path] = copy;
    }
    return disk;
}

void SimulatedDisk::forEachCut(const std::function<void(const SimulatedDisk&)>& use) const {
    Names names = forcedNames_;
    for (size_t made = 0;; ++made) {
        bool isChanged = false;
        for (const auto& [path, node] : names) {
            if (node->unforced.empty())
                continue;
            isChanged = true;
            forEachContent(*node, [&](const std::string& bytes) { use(after(names, node, bytes)); });
        }
        if (!isChanged)
            use(after(names, nullptr, ""));
        if (made == unforcedNames_.size())
            break;
        apply(unforcedNames_[made], names);
    }
}

std::string SimulatedDisk::read(const std::string& path) const {
    auto found = names_.find(path);
    return found != names_.end() ? found->second->bytes : "";
}

void SimulatedDisk::write(const std::string& path, const std::string& bytes) {
    for (Names* names : {&names_, &forcedNames_})
        names->erase(path);
    if (!bytes.empty())
        names_[path] = forcedNames_[path] = std::make_shared<Node>(Node{.bytes = bytes, .forced = bytes});
}

void SimulatedDisk::change(Node& node, Change change) {
    apply(change, change.bytes.size(), node.bytes);
    node.unforced.push_back(std::move(change));
}

void SimulatedDisk::rename(const std::string& path, Names names) {
    unforcedNames_.push_back({store::directoryOf(path), std::move(names)});
    apply(unforcedNames_.back(), names_);
}

void SimulatedDisk::force(const NodePtr& node) {
    if (beforeForce)
        beforeForce();
    for (const Change& change : node->unforced)
        apply(change, change.bytes.size(), node->forced);
    node->unforced.clear();
    if (!node->isFolder)
        return;
    std::erase_if(unforcedNames_, [&](const Naming& naming) {
        const bool isHere = names_[naming.folder] == node;
        if (isHere)
            apply(naming, forcedNames_);
        return isHere;
    });
}

// The system's calls.
struct SimulatedCalls {
    static int failure(int error) {
        errno = error;
        return -1;
    }
    static bool fails() {
        SimulatedDisk& disk = *simulatedDisk;
        ++disk.calls;
        const bool failing = disk.calls >= disk.first && disk.calls <= disk.last;
        errno = failing ? disk.error : errno;
        disk.hasFailed |= failing;
        return failing;
    }
    static SimulatedDisk::NodePtr find(const char* path) {
        auto found = simulatedDisk->names_.find(path);
        return found != simulatedDisk->names_.end() ? found->second : nullptr;
    }

    static int open(const char* path, int flags, mode_t) {
        SimulatedDisk& disk = *simulatedDisk;
        if (fails())
            return -1;
        SimulatedDisk::NodePtr node = find(path);
        if (node && (flags & O_EXCL) != 0)
            return failure(EEXIST);
        if (!node && ((flags & O_CREAT) == 0 || !find(store::directoryOf(path).c_str())))
            return failure(ENOENT);
        if (!node) {
            node = std::make_shared<SimulatedDisk::Node>();
            disk.rename(path, {{path, node}});
        }
        if ((flags & O_TRUNC) != 0 && !node->bytes.empty())
            disk.change(*node, {.isCut = true});
        static int last = 100;
        disk.open_[++last] = {node, path};
        return last;
    }
    static int close(int fd) { return simulatedDisk->open_.erase(fd) == 1 ? 0 : failure(EBADF); }
    static ssize_t read(int fd, void* buffer, size_t room) {
        if (fails())
            return -1;
        auto& [node, path, at] = simulatedDisk->open_.at(fd);
        const size_t size = std::min(room, node->bytes.size() - at);
        std::memcpy(buffer, node->bytes.data() + at, size);
        at += size;
        return static_cast<ssize_t>(size);
    }
    // Always behind what is there: the store opens what it writes with O_APPEND, or anew.
    static ssize_t write(int fd, const void* bytes, size_t size) {
        const bool failing = fails();
        SimulatedDisk::Node& node = *simulatedDisk->open_.at(fd).node;
        const std::string all(static_cast<const char*>(bytes), failing ? size / 2 : size);
        const int kept = errno;
        simulatedDisk->change(node, {.at = node.bytes.size(), .bytes = all});
        errno = kept;
        return failing ? -1 : static_cast<ssize_t>(size);
    }
    // What could not be forced is dropped, and not tried again by the next call.
    static int force(int fd) {
        const SimulatedDisk::NodePtr& node = simulatedDisk->open_.at(fd).node;
        if (fails()) {
            node->unforced.clear();
            return -1;
        }
        simulatedDisk->force(node);
        return 0;
    }
    static int truncate(int fd, off_t size) {
        if (fails())
            return -1;
        simulatedDisk->change(*simulatedDisk->open_.at(fd).node,
                              {.at = static_cast<size_t>(size), .isCut = true});
        return 0;
    }
    static int tell(const SimulatedDisk::NodePtr& node, struct stat* status) {
        if (!node)
            return failure(ENOENT);
        *status = {};
        status->st_ino = reinterpret_cast<ino_t>(node.get());
        status->st_size = static_cast<off_t>(node->bytes.size());
        status->st_mode = node->isFolder ? S_IFDIR : S_IFREG;
        return 0;
    }
    static int fstat(int fd, struct stat* status) {
        return fails() ? -1 : tell(simulatedDisk->open_.at(fd).node, status);
    }
    static int stat(const char* path, struct stat* status) { return fails() ? -1 : tell(find(path), status); }
    static int flock(int, int) { return fails() ? -1 : 0; }
    static int rename(const char* from, const char* to) {
        if (fails())
            return -1;
        if (!find(from))
            return failure(ENOENT);
        simulatedDisk->rename(from, {{from, nullptr}, {to, find(from)}});
        return 0;
    }
    static int link(const char* from, const char* to) {
        if (fails())
            return -1;
        if (!find(from) || find(to))
            return failure(find(from) ? EEXIST : ENOENT);
        simulatedDisk->rename(to, {{to, find(from)}});
        return 0;
    }
    static int unlink(const char* path) {
        if (fails())
            return -1;
        if (!find(path))
            return failure(ENOENT);
        simulatedDisk->rename(path, {{path, nullptr}});
        return 0;
    }
    static int mkdir(const char* path, mode_t) {
        if (fails())
            return -1;
        simulatedDisk->rename(
            path, {{path, std::make_shared<SimulatedDisk::Node>(SimulatedDisk::Node{.isFolder = true})}});
        return 0;
    }
};

using Calls = SimulatedCalls;
const store::FileCalls simulatedFiles = {
    Calls::open,  Calls::close, Calls::read,  Calls::write,  Calls::force, Calls::force,  Calls::truncate,
    Calls::fstat, Calls::stat,  Calls::flock, Calls::rename, Calls::link,  Calls::unlink, Calls::mkdir};
