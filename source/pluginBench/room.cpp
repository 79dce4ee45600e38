#include "pluginBench/room.h"

#include <linux/capability.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <system_error>

#include "process/descriptor.h"
#include "text/fixedPaths.h"

namespace pluginBench {
namespace {

namespace fs = std::filesystem;

// The new root is built over a folder that every system has.
const fs::path root = "/mnt";

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void require(long result, const std::string& what) {
    if (result < 0)
        fail(what);
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    if (!file)
        fail(path);
}

// The user is root in the user namespace.
void mapToRoot(uid_t user, gid_t group) {
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

void mountFresh(const fs::path& path, const char* options) {
    require(mount("room", path.c_str(), "tmpfs", MS_NODEV, options), "a file system at " + path.string());
}

void show(const fs::path& from, const fs::path& place) {
    require(mount(from.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
            "showing " + from.string());
}

void showReadOnly(const fs::path& from, const fs::path& place, uint64_t more = MOUNT_ATTR_NODEV) {
    if (!fs::exists(from))
        return;
    show(from, place);
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY | more;
    require(mount_setattr(AT_FDCWD, place.c_str(), AT_RECURSIVE, &attributes, sizeof attributes),
            "making " + from.string() + " read-only");
}

bool isOwn(const std::string& name) {
    for (const char* own : {"tmp", "var", "run", "vemra", "proc", "mnt", "dev"}) {
        if (name == own)
            return true;
    }
    return false;
}

void showMachine() {
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        const std::string name = entry.path().filename();
        const fs::path place = root / name;
        if (isOwn(name))
            continue;
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), place);
        } else if (entry.is_directory()) {
            fs::create_directory(place);
            showReadOnly(entry.path(), place);
        }
    }
}

// Only what can do no harm: a device is written to through a read-only mount, too.
void makeDevices() {
    for (const char* name : {"null", "zero", "full", "random", "urandom", "tty"}) {
        const fs::path device = fs::path("/dev") / name;
        if (!fs::exists(device))
            continue;
        const fs::path place = root / "dev" / name;
        writeText(place, "");
        // Its owner and its mode are the machine's.
        showReadOnly(device, place, 0);
    }
    fs::create_symlink("/proc/self/fd", root / "dev/fd");
    fs::create_symlink("fd/0", root / "dev/stdin");
    fs::create_symlink("fd/1", root / "dev/stdout");
    fs::create_symlink("fd/2", root / "dev/stderr");
    mountFresh(root / "dev/shm", "mode=1777");
}

void makeFolders() {
    for (const char* path : {"proc", "mnt", "run", "tmp", "var/log", "var/tmp", "var/lib/misc", "vemra/var",
                             "vemra/default/ostrPlugins", "dev/shm"})
        fs::create_directories(root / path);
    for (const char* path : {"tmp", "var/tmp"})
        fs::permissions(root / path, fs::perms::all | fs::perms::sticky_bit);
    require(mount("proc", (root / "proc").c_str(), "proc", 0, nullptr), "/proc");
    // Of the settings of the kernel only those of the network are the namespace's own.
    for (const char* path :
         {"proc/sys/kernel", "proc/sys/vm", "proc/sys/fs", "proc/sys/dev", "proc/sysrq-trigger"})
        showReadOnly(root / path, root / path);
    makeDevices();
}

// Without what cannot be read or is gone meanwhile, and without sockets and devices.
void copyFolder(const fs::path& from, const fs::path& to) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(from, error)) {
        const fs::path place = to / entry.path().filename();
        if (entry.is_symlink(error))
            fs::copy_symlink(entry.path(), place, error);
        else if (entry.is_directory(error) && fs::create_directory(place, entry.path(), error))
            copyFolder(entry.path(), place);
        else if (entry.is_regular_file(error))
            fs::copy_file(entry.path(), place, error);
        if (error == std::errc::no_space_on_device)
            throw fs::filesystem_error("the copy does not fit into the memory", entry.path(), error);
    }
}

// What would be copied without end, or is no file of anybody's.
bool canBeCopied(const fs::path& folder) {
    const fs::path inRoot = folder.lexically_normal().relative_path();
    if (inRoot.empty())
        return false;
    for (const char* refused : {"proc", "sys", "dev", "mnt"}) {
        if (*inRoot.begin() == refused)
            return false;
    }
    return true;
}

void makePrivate(const Scenario& scenario) {
    for (const std::string& folder : scenario.privateFolders) {
        if (!fs::is_directory(folder))
            throw ScenarioError(scenario.path + ": private " + folder + ": there is no such folder");
        if (!canBeCopied(folder))
            throw ScenarioError(scenario.path + ": private " + folder + ": it cannot be copied");
        const fs::path place = root / fs::path(folder).relative_path();
        fs::create_directories(place);
        mountFresh(place, "mode=0755");
        copyFolder(folder, place);
    }
}

// The program that stands beside the bench or, as the bench is a developer's, where a device has it; empty
// when there is none.
fs::path findProgram(const char* name) {
    std::error_code error;
    for (const fs::path& folder :
         {fs::read_symlink("/proc/self/exe", error).parent_path(), fs::path(roomPrograms)}) {
        if (fs::is_regular_file(folder / name, error))
            return folder / name;
    }
    return {};
}

// Copies: a scenario may put others in their places.
void copyPrograms() {
    const fs::path place = root / fs::path(roomPrograms).relative_path();
    fs::create_directories(place);
    for (const char* name : {"ostrelCtl", "ostrelExecRunner"}) {
        const fs::path program = findProgram(name);
        if (program.empty())
            continue;
        fs::copy_file(program, place / name);
        // The client's library, where it looks for that.
        const fs::path library = fs::path("..") / LIBRARY_FOLDER / "libostrelClient.so.0";
        std::error_code none;
        fs::create_directories((place / library).parent_path());
        fs::copy_file(program.parent_path() / library, place / library, fs::copy_options::skip_existing,
                      none);
    }
}

void changeRoot() {
    require(chdir(root.c_str()), root);
    require(syscall(SYS_pivot_root, ".", "mnt"), "changing the root folder");
    require(umount2("/mnt", MNT_DETACH), "leaving the machine's root folder");
    require(chdir("/"), "/");
}

void startLoopback() {
    const process::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::memcpy(request.ifr_name, "lo", sizeof "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    require(ioctl(socket.get(), SIOCSIFFLAGS, &request), "the loopback interface");
}

// Gives up what would reach beyond the namespaces: the clock, modules, devices, reboot.
void giveUpMachine() {
    constexpr std::array<unsigned int, 5> rights{CAP_SYS_TIME, CAP_SYS_MODULE, CAP_SYS_RAWIO, CAP_SYS_BOOT,
                                                 CAP_MKNOD};
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    require(syscall(SYS_capget, &header, sets.data()), "capabilities");
    for (const unsigned int right : rights) {
        prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
        __user_cap_data_struct& set = sets.at(CAP_TO_INDEX(right));
        set.effective &= ~CAP_TO_MASK(right);
        set.permitted &= ~CAP_TO_MASK(right);
        set.inheritable &= ~CAP_TO_MASK(right);
    }
    require(syscall(SYS_capset, &header, sets.data()), "giving up capabilities");
}

}  // namespace

Room::Room() : user_(geteuid()), group_(getegid()) {}

pid_t Room::fork() const {
    // Not unshare(2): this process would have its later children there, too, those of a leak checker for one.
    const long flags = SIGCHLD | CLONE_NEWPID | (user_ == 0 ? 0 : CLONE_NEWUSER);
    const long child = syscall(SYS_clone, flags, nullptr, nullptr, nullptr, nullptr);
    require(child, user_ == 0 ? "a process namespace"
                              : "a user namespace, which the kernel must allow to users other than root");
    return static_cast<pid_t>(child);
}

std::string Room::enter(const Scenario& scenario, const std::string& plugin) const {
    if (user_ != 0)
        mapToRoot(user_, group_);
    require(unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWUTS | CLONE_NEWIPC),
            "mount, network, host name and IPC namespaces");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    mountFresh(root, "mode=0755");
    showMachine();
    makeFolders();
    makePrivate(scenario);
    const fs::path place = fs::path("vemra/default/ostrPlugins") / fs::path(plugin).filename();
    copyPrograms();
    fs::copy_file(plugin, root / place, fs::copy_options::overwrite_existing);
    changeRoot();
    startLoopback();
    writeRoomFile(defaultsPath, joined(scenario.defaults));
    writeRoomFile(templatesPath, joined(scenario.templates));
    giveUpMachine();
    return '/' + place.string();
}

void writeRoomFile(const std::string& path, std::string_view content) {
    std::error_code ignored;
    fs::create_directories(fs::path(path).parent_path(), ignored);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content << std::flush;
    if (!file)
        throw ScenarioError(path + ": " + std::strerror(errno) +
                            (errno == EROFS ? "; make its folder private" : ""));
    if (content.starts_with("#!"))
        fs::permissions(path, fs::perms(0755), ignored);
}

}  // namespace pluginBench
