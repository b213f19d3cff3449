#include "launcher/sandbox/root_tree.h"

#include "launcher/host_program.h"
#include "launcher/sandbox/namespaces.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/shell_words.h"
#include "rovu_sim/text_files.h"
#include "rovu_sim/volume_store.h"
#include "util/descriptor.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace rovusim {
namespace {

constexpr char kScript[] =
#include "prepare_root.inc"
    ;
constexpr const char* kSystemFolders[] = {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};

struct RootSource {
    std::string kind;      // as the script names it
    std::string path;      // of the image, program or folder; empty: none
    std::string name;      // for people
    std::string identity;  // changes with what it holds
};

constexpr off_t kTarMagicAt = 257;

// Empty: neither a folder nor an image that is known here.
std::string kindOf(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return "";
    if (S_ISDIR(info.st_mode)) return "folder";
    const zem::Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char magic[5] = {};
    if (pread(file.get(), magic, 4, 0) == 4 && std::string(magic) == "hsqs") return "squashfs";
    if (pread(file.get(), magic, 5, kTarMagicAt) == 5 && std::string(magic, 5) == "ustar") return "tar";
    return "";
}

std::string identityOf(const std::string& path) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return path;
    return path + " " + std::to_string(info.st_size) + " " + std::to_string(info.st_mtim.tv_sec) + "." +
           std::to_string(info.st_mtim.tv_nsec);
}

// Whether the running set's root volume holds an image that can be unpacked here.
bool isFlashed(const std::string& stateDir, const Device& device, RootSource* source) {
    const std::string name = "k" + std::to_string(device.runningSet) + "_root";
    Volume volume;
    if (findVolume(stateDir, name, &volume) != 0) return false;
    const std::string path = volumePath(stateDir, volume.id);
    const std::string kind = kindOf(path);
    if (kind.empty()) return false;
    *source = {kind, path, "volume " + name, identityOf(path)};
    return true;
}

RootSource sourceOf(const std::string& stateDir) {
    Device device;
    RootSource source;
    if (loadDevice(stateDir, &device) != 0 || isFlashed(stateDir, device, &source)) return source;
    if (device.root.empty()) {
        source = {"busybox", findProgram("busybox"), "BusyBox", "busybox"};
    } else if (device.root == kHostRoot) {
        source = {"host", "", "the workstation's programs", "host"};
    } else {
        const std::string kind = kindOf(device.root);
        // A compressed tar shows no magic of its own: tar tells.
        source = {kind.empty() ? "tar" : kind, device.root, device.root.substr(device.root.rfind('/') + 1),
                  device.root};
    }
    return source;
}

std::string joined(const char* const* names, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text.append(names[i]).append(" ");
    return text;
}

void add(std::vector<std::string>* words, std::initializer_list<std::string> more) {
    words->insert(words->end(), more);
}

std::vector<std::string> scriptCommand(const RootSource& source, const std::string& target) {
    std::vector<std::string> words = {"bwrap", "--unshare-all", "--die-with-parent", "--new-session",
                                      "--clearenv"};
    add(&words, {"--setenv", "PATH", kRealPath, "--ro-bind", "/usr", "/usr"});
    // The programs that unpack an image, which may come from an update, see no configuration of the host.
    if (source.kind == "host") add(&words, {"--ro-bind", "/etc", "/etc"});
    for (const char* needed : {"/etc/alternatives", "/etc/ld.so.cache"}) {
        if (source.kind != "host") add(&words, {"--ro-bind-try", needed, needed});
    }
    for (const char* folder : kSystemFolders) {
        char link[PATH_MAX];
        const ssize_t length = readlink(folder, link, sizeof link);
        if (length > 0) {
            add(&words, {"--symlink", std::string(link, static_cast<size_t>(length)), folder});
        } else {
            add(&words, {"--ro-bind-try", folder, folder});
        }
    }
    add(&words, {"--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp", "--bind", target, "/new"});
    if (!source.path.empty()) add(&words, {"--ro-bind", source.path, "/source"});
    add(&words, {"--remount-ro", "/", "sh", "-c", kScript, "prepare-root", source.kind,
                 joined(kSimulatedTools, std::size(kSimulatedTools)),
                 joined(kPassThroughs, std::size(kPassThroughs))});
    return words;
}

// As `busybox --install -s` in the new root. A shell script would take a second for it.
int linkApplets(const std::string& busybox, const std::string& tree) {
    std::string applets;
    if (!readOutput(quoteForShell(busybox) + " --list-full", &applets)) return ENOEXEC;
    int rc = 0;
    for (const std::string& applet : splitLines(applets)) {
        std::string path = tree;
        path.append("/").append(applet);
        if (rc == 0) rc = makeDirectories(path.substr(0, path.rfind('/')));
        if (rc == 0 && symlink("/bin/busybox", path.c_str()) != 0 && errno != EEXIST) rc = errno;
    }
    return rc;
}

int removeTree(const std::string& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
    return error.value();
}

}  // namespace

std::string rootTreeOf(const std::string& stateDir) {
    return stateDir + "/root";
}

bool isOfHostPrograms(const std::string& stateDir) {
    return sourceOf(stateDir).kind == "host";
}

int prepareRootTree(const std::string& stateDir, const sigset_t& signalMask) {
    const std::string tree = rootTreeOf(stateDir), made = tree + ".new", note = tree + "-of";
    const RootSource source = sourceOf(stateDir);
    std::string present;
    if (readTextFile(note, &present) == 0 && present == source.identity) return 0;
    if (source.kind == "busybox" && source.path.empty()) {
        complain("busybox, of which a device consists that has no --root, is not installed");
        return ENOENT;
    }
    if (source.kind.empty()) return cannot("read the device in", stateDir, ENOENT);
    int rc = tryUserNamespace();
    if (rc != 0) return rc;
    rc = removeTree(made);
    if (rc == 0 && mkdir(made.c_str(), 0755) != 0) rc = errno;
    if (rc == 0 && source.kind == "busybox") rc = linkApplets(source.path, made);
    if (rc != 0) return cannot("make", made, rc);
    const int status = runHostProgram(scriptCommand(source, made), signalMask);
    if (status != 0) {
        removeTree(made);
        complain(source.name + " could not be made the root file system of " + stateDir);
        return EILSEQ;
    }
    unlink(note.c_str());
    rc = removeTree(tree);
    if (rc == 0 && rename(made.c_str(), tree.c_str()) != 0) rc = errno;
    if (rc == 0) rc = replaceTextFile(note, source.identity);
    return rc == 0 ? 0 : cannot("make", tree, rc);
}

}  // namespace rovusim
