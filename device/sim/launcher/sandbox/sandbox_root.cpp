#include "launcher/sandbox/sandbox_root.h"

#include "launcher/message.h"
#include "launcher/sandbox/device_nodes.h"
#include "launcher/sandbox/limited_tmp.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/tool_names.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rovusim {
namespace {

// Not the host's: each gets a mount of the device's own.
constexpr const char* kPrivate[] = {"/tmp", "/app0", "/etc/ssh", "/dev", "/run", "/usr/local/bin", "/proc"};
// What the host's programs need, and all that is shown of the host. No home, no key, no configuration of a service.
constexpr const char* kShown[] = {
    "/bin",
    "/etc/alternatives",
    "/etc/host.conf",
    "/etc/hosts",
    "/etc/ld.so.cache",
    "/etc/ld.so.conf",
    "/etc/ld.so.conf.d",
    "/etc/localtime",
    "/etc/nsswitch.conf",
    "/etc/protocols",
    "/etc/resolv.conf",
    "/etc/services",
    "/etc/ssl/certs",
    "/etc/ssl/openssl.cnf",
    "/lib",
    "/lib32",
    "/lib64",
    "/libx32",
    "/sbin",
    "/usr",
};
// The device's accounts: those that its programs and an SSH server need.
constexpr char kAccounts[] = "root:x:0:0:root:/root:/bin/sh\n"
                             "sshd:x:102:65534::/run/sshd:/usr/sbin/nologin\n"
                             "nobody:x:65534:65534:nobody:/:/usr/sbin/nologin\n";
constexpr char kPasswords[] = "root::::::::\n";  // without an entry, an SSH server takes root for locked
constexpr char kGroups[] = "root:x:0:\nnogroup:x:65534:\n";
// Shown entry by entry, because the host may lack a directory where the device needs a mount point.
constexpr const char* kOpened[] = {"/usr", "/usr/local"};

bool isBelow(const std::string& path, const std::string& folder) {
    return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

template <size_t N>
bool isInOneOf(const std::string& path, const char* const (&list)[N]) {
    for (const char* entry : list) {
        if (isBelow(path, entry)) return true;
    }
    return false;
}

template <size_t N>
bool isOneOf(const std::string& path, const char* const (&list)[N]) {
    for (const char* entry : list) {
        if (path == entry) return true;
    }
    return false;
}

int mountTmpfs(const std::string& target, unsigned long flags) {
    if (mount("tmpfs", target.c_str(), "tmpfs", flags, "mode=0755") != 0)
        return cannot("mount a tmpfs on", target, errno);
    return 0;
}

int bindMount(const std::string& source, const std::string& target) {
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
        return cannot("bind " + source + " to", target, errno);
    return 0;
}

int setAttributes(const std::string& target, uint64_t set, unsigned flags) {
    mount_attr attributes = {};
    attributes.attr_set = set;
    if (mount_setattr(AT_FDCWD, target.c_str(), flags, &attributes, sizeof attributes) != 0)
        return cannot("limit the mount of", target, errno);
    return 0;
}

int makeReadOnly(const std::string& target, unsigned flags) {
    return setAttributes(target, MOUNT_ATTR_RDONLY, flags);
}

int makeFile(const std::string& path) {
    zem::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    return file.isOpen() ? 0 : errno;
}

// Makes a mount point of the source's kind, and the directories above it.
int makeMountPoint(const std::string& source, const std::string& target) {
    struct stat info;
    if (stat(source.c_str(), &info) != 0) return cannot("bind", source, errno);
    const std::string directory = S_ISDIR(info.st_mode) ? target : target.substr(0, target.rfind('/'));
    int rc = makeDirectories(directory);
    if (rc == 0 && !S_ISDIR(info.st_mode)) rc = makeFile(target);
    return rc == 0 ? 0 : cannot("make", target, rc);
}

int showReadOnly(const std::string& source, const std::string& target) {
    if (int rc = makeMountPoint(source, target); rc != 0) return rc;
    if (int rc = bindMount(source, target); rc != 0) return rc;
    return makeReadOnly(target, AT_RECURSIVE);
}

int copyLink(const std::string& source, const std::string& target) {
    char text[4096];
    const ssize_t length = readlink(source.c_str(), text, sizeof text - 1);
    if (length < 0) return cannot("read", source, errno);
    text[length] = '\0';
    if (symlink(text, target.c_str()) != 0) return cannot("link", target, errno);
    return 0;
}

int mirrorDirectory(const std::string& host, const std::string& newRoot);

// `path` is absolute, on the host and below `newRoot`.
int mirrorEntry(const std::string& path, const std::string& newRoot) {
    if (isOneOf(path, kPrivate)) return 0;
    if (isOneOf(path, kOpened)) return mirrorDirectory(path, newRoot);
    const std::string target = newRoot + path;
    struct stat info;
    if (lstat(path.c_str(), &info) != 0) return errno == ENOENT ? 0 : cannot("look at", path, errno);
    if (int rc = makeDirectories(target.substr(0, target.rfind('/'))); rc != 0)
        return cannot("make the folder of", target, rc);
    if (S_ISLNK(info.st_mode)) return copyLink(path, target);
    if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode)) return 0;
    if (int rc = makeMountPoint(path, target); rc != 0) return rc;
    return bindMount(path, target);
}

int mirrorDirectory(const std::string& host, const std::string& newRoot) {
    if (int rc = makeDirectories(newRoot + host); rc != 0) return cannot("make", newRoot + host, rc);
    DIR* directory = opendir(host.c_str());
    if (directory == nullptr) return errno == ENOENT ? 0 : cannot("read", host, errno);
    int rc = 0;
    while (rc == 0) {
        const dirent* entry = readdir(directory);
        if (entry == nullptr) break;
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        std::string path = host;
        path += '/';
        path += name;
        rc = mirrorEntry(path, newRoot);
    }
    closedir(directory);
    return rc;
}

int makePrivateMountPoints(const std::string& newRoot) {
    for (const char* path : kPrivate) {
        if (int rc = makeDirectories(newRoot + path); rc != 0) return cannot("make", newRoot + path, rc);
    }
    for (const char* path : {"/root", "/sys", "/var"}) {
        if (int rc = makeDirectories(newRoot + path); rc != 0) return cannot("make", newRoot + path, rc);
    }
    int rc = replaceTextFile(newRoot + "/etc/passwd", kAccounts);
    if (rc == 0) rc = replaceTextFile(newRoot + "/etc/shadow", kPasswords);
    if (rc == 0) rc = replaceTextFile(newRoot + "/etc/group", kGroups);
    if (rc != 0) return cannot("write to", newRoot + "/etc", rc);
    // A minimal host has none, and what is served needs one to replace.
    const std::string hosts = newRoot + "/etc/hosts";
    if (access(hosts.c_str(), F_OK) == 0) return 0;
    rc = makeFile(hosts);
    return rc == 0 ? 0 : cannot("make", hosts, rc);
}

// The device's directories that are kept in the state directory between runs.
constexpr const char* kKeptDirectories[] = {"/tmp", "/app0", "/etc/ssh"};

bool isStateDirectory(const SandboxPlan& plan, const std::string& outside) {
    for (const char* path : kKeptDirectories) {
        if (outside == outsidePath(plan.stateDir, path)) return true;
    }
    return false;
}

int mountStateDirectories(const SandboxPlan& plan, const std::string& newRoot) {
    for (const char* path : kKeptDirectories) {
        if (int rc = bindMount(outsidePath(plan.stateDir, path), newRoot + path); rc != 0) return rc;
        if (int rc = setAttributes(newRoot + path, MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV, 0); rc != 0)
            return rc;
    }
    return plan.tmp < 0 ? 0 : mountLimitedTmp(plan.tmp, newRoot + "/tmp");
}

// A new proc shows only this namespace's processes, but its switches are still the host's.
int mountProc(const SandboxPlan& plan, const std::string& newRoot) {
    const std::string proc = newRoot + "/proc";
    if (mount("proc", proc.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0)
        return cannot("mount proc on", proc, errno);
    for (const char* name : {"/sys", "/sysrq-trigger", "/irq", "/bus", "/fs"}) {
        const std::string path = proc + name;
        if (access(path.c_str(), F_OK) != 0) continue;
        if (int rc = bindMount(path, path); rc != 0) return rc;
        if (int rc = makeReadOnly(path, AT_RECURSIVE); rc != 0) return rc;
    }
    return bindMount(plan.stateDir + "/run/cmdline", proc + "/cmdline");
}

// The launcher's own directory: the bytes of the volumes, the channel of the tools, their binary and the real shell.
int mountHome(const SandboxPlan& plan, const std::string& newRoot) {
    if (int rc = mountTmpfs(newRoot + "/run", MS_NOSUID | MS_NODEV); rc != 0) return rc;
    if (int rc = makeDirectories(newRoot + "/run/lock"); rc != 0) return cannot("make", "/run/lock", rc);
    if (int rc = showReadOnly(plan.stateDir + "/ubi", newRoot + kStateInside + "/ubi"); rc != 0) return rc;
    if (int rc = showReadOnly(plan.stateDir + "/run/channel", newRoot + kChannelInside); rc != 0) return rc;
    return showReadOnly(plan.toolProgram, newRoot + kToolInside);
}

// The tool binary replaces the program of /bin/sh, so that shells with a script can be recorded and made to
// fail. The real shell stays reachable for it.
int mountShell(const SandboxPlan& plan, const std::string& newRoot) {
    char shell[PATH_MAX];
    if (realpath("/bin/sh", shell) == nullptr) return cannot("find", "/bin/sh", errno);
    if (int rc = showReadOnly(shell, newRoot + kRealShellInside); rc != 0) return rc;
    const std::string replaced = newRoot + shell;
    if (int rc = bindMount(plan.toolProgram, replaced); rc != 0) return rc;
    return makeReadOnly(replaced, 0);
}

int linkTool(const std::string& directory, const char* name) {
    const std::string path = directory + "/" + name;
    if (symlink(kToolInside, path.c_str()) != 0) return cannot("link", path, errno);
    return 0;
}

int mountTools(const std::string& newRoot) {
    const std::string directory = newRoot + "/usr/local/bin";
    if (int rc = mountTmpfs(directory, MS_NOSUID | MS_NODEV); rc != 0) return rc;
    for (const char* name : kSimulatedTools) {
        if (int rc = linkTool(directory, name); rc != 0) return rc;
    }
    for (const char* name : kPassThroughs) {
        if (int rc = linkTool(directory, name); rc != 0) return rc;
    }
    return 0;
}

// A path below another bind is mounted already.
bool isSameFile(const std::string& one, const std::string& other) {
    struct stat first;
    struct stat second;
    if (stat(one.c_str(), &first) != 0 || stat(other.c_str(), &second) != 0) return false;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Those within a folder of the device's own come after its mount, the others before the root becomes read-only.
int mountBinds(const SandboxPlan& plan, const std::string& newRoot, bool inPrivate) {
    for (const std::string& path : plan.binds) {
        if (!isHiddenInside(path) || isInOneOf(path, kPrivate) != inPrivate) continue;
        const std::string target = newRoot + path;
        if (isSameFile(path, target)) continue;
        if (int rc = showReadOnly(path, target); rc != 0) return rc;
    }
    return 0;
}

int moveInto(const std::string& newRoot) {
    if (chdir(newRoot.c_str()) != 0) return cannot("enter", newRoot, errno);
    // The old root is stacked on the new one and then unmounted; it needs no directory of its own.
    if (syscall(SYS_pivot_root, ".", ".") != 0) return cannot("change the root to", newRoot, errno);
    if (umount2(".", MNT_DETACH) != 0) return cannot("leave", "the host's root", errno);
    if (chdir("/") != 0) return cannot("enter", "/", errno);
    return 0;
}

}  // namespace

bool isHiddenInside(const std::string& path) {
    return isInOneOf(path, kPrivate) || !isInOneOf(path, kShown);
}

int enterSandboxRoot(const SandboxPlan& plan) {
    const std::string newRoot = plan.stateDir + "/root";
    // No mount from here on may propagate to the host.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return cannot("separate the mounts from", "the host's", errno);
    if (int rc = mountTmpfs(newRoot, MS_NOSUID | MS_NODEV); rc != 0) return rc;
    if (mount(nullptr, newRoot.c_str(), nullptr, MS_UNBINDABLE, nullptr) != 0)
        return cannot("prepare", newRoot, errno);
    for (const char* path : kShown) {
        if (int rc = mirrorEntry(path, newRoot); rc != 0) return rc;
    }
    if (int rc = mountBinds(plan, newRoot, false); rc != 0) return rc;
    if (int rc = makePrivateMountPoints(newRoot); rc != 0) return rc;
    if (int rc = makeReadOnly(newRoot, AT_RECURSIVE); rc != 0) return rc;

    if (int rc = mountStateDirectories(plan, newRoot); rc != 0) return rc;
    if (int rc = mountHome(plan, newRoot); rc != 0) return rc;
    if (int rc = mountTools(newRoot); rc != 0) return rc;
    if (int rc = mountShell(plan, newRoot); rc != 0) return rc;
    if (int rc = mountTmpfs(newRoot + "/dev", MS_NOSUID | MS_NOEXEC); rc != 0) return rc;
    if (int rc = makeDeviceNodes(plan, newRoot + "/dev"); rc != 0) return rc;
    if (int rc = mountProc(plan, newRoot); rc != 0) return rc;
    if (int rc = mountBinds(plan, newRoot, true); rc != 0) return rc;
    for (const auto& [source, inside] : plan.replaced) {
        if (int rc = bindMount(source, newRoot + inside); rc != 0) return rc;
        if (int rc = makeReadOnly(newRoot + inside, 0); rc != 0) return rc;
    }
    if (int rc = makeReadOnly(newRoot + "/usr/local/bin", 0); rc != 0) return rc;
    return moveInto(newRoot);
}

void removeBindLeftovers(const SandboxPlan& plan) {
    for (const std::string& path : plan.binds) {
        std::string place = outsidePath(plan.stateDir, path);
        struct stat info;
        if (place.empty() || lstat(place.c_str(), &info) != 0) continue;
        if (S_ISREG(info.st_mode) && info.st_size == 0) unlink(place.c_str());
        // Upwards to the first directory that is not empty; the device's own directories stay.
        while (!isStateDirectory(plan, place) && (rmdir(place.c_str()) == 0 || errno == ENOENT))
            place.erase(place.rfind('/'));
    }
}

}  // namespace rovusim
