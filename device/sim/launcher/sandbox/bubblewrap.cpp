#include "launcher/sandbox/bubblewrap.h"

#include "launcher/host_program.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/volume_store.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>

namespace rovusim {
namespace {

// The device's directories that are kept in the state directory between runs.
constexpr const char* kKeptDirectories[] = {"/tmp", "/app0", "/etc/ssh"};
// For owners and modes of files, processes of the namespace, and low ports.
constexpr const char* kCapabilities[] = {
    "CAP_CHOWN",  "CAP_DAC_OVERRIDE", "CAP_FOWNER",  "CAP_FSETID",           "CAP_KILL",
    "CAP_SETGID", "CAP_SETUID",       "CAP_SETPCAP", "CAP_NET_BIND_SERVICE", "CAP_SYS_CHROOT",
};
// What of the host's configuration a network of the host needs.
constexpr const char* kNetworkFiles[] = {"/etc/hosts", "/etc/resolv.conf",
                                         "/etc/ssl/certs/ca-certificates.crt"};
constexpr char kRunBytes[] = "16777216";  // of /run

class Words {
public:
    explicit Words(std::initializer_list<std::string> first) : words_(first) {}

    void add(std::initializer_list<std::string> more) { words_.insert(words_.end(), more); }
    void show(const std::string& path, const std::string& inside) { add({"--ro-bind", path, inside}); }
    std::vector<std::string>& all() { return words_; }

private:
    std::vector<std::string> words_;
};

void addEnvironment(const SandboxPlan& plan, Words* words) {
    words->add({"--clearenv", "--setenv", "PATH", kPathInside, "--setenv", "HOME", "/root"});
    words->add({"--setenv", "SHELL", "/bin/sh", "--setenv", "USER", "root", "--setenv", "LOGNAME", "root"});
    if (const char* terminal = getenv("TERM"); terminal != nullptr)
        words->add({"--setenv", "TERM", terminal});
    for (const std::string& setting : plan.environment) {
        const size_t equals = setting.find('=');
        words->add({"--setenv", setting.substr(0, equals), setting.substr(equals + 1)});
    }
}

// The entries of a host's folder, but for one that the device has itself.
void showFolder(const std::string& folder, const std::string& without, Words* words) {
    DIR* entries = opendir(folder.c_str());
    if (entries == nullptr) return;
    for (const dirent* entry = readdir(entries); entry != nullptr; entry = readdir(entries)) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == without) continue;
        std::string path = folder;
        path += '/';
        path += name;
        words->show(path, path);
    }
    closedir(entries);
}

// The tool stands for the program of /bin/sh here as well, which the host's folder has under its own name.
void addHostPrograms(const SandboxPlan& plan, Words* words) {
    showFolder("/usr", "local", words);
    showFolder("/usr/local", "bin", words);
    char shell[PATH_MAX];
    if (realpath("/bin/sh", shell) == nullptr) return;
    words->show(plan.toolProgram, shell);
    words->show(shell, kRealShellInside);
}

void addDevice(const SandboxPlan& plan, Words* words) {
    words->add({"--dev", "/dev", "--dev-bind", "/dev/null", kUbiDevice});
    std::vector<Volume> volumes;
    if (int rc = listVolumes(plan.stateDir, &volumes); rc != 0)
        cannot("read the volumes of", plan.stateDir, rc);
    // A volume's node is a link to its bytes: of a static volume those written, of a dynamic one its full size.
    for (const Volume& volume : volumes) {
        words->add({"--symlink", volumePath(kStateInside, volume.id),
                    std::string(kUbiDevice) + "_" + std::to_string(volume.id)});
    }
    words->add({"--proc", "/proc"});
    words->show(plan.stateDir + "/run/cmdline", "/proc/cmdline");
}

// The launcher's own folder: the bytes of the volumes, the channel of the tools, and their program.
void addHome(const SandboxPlan& plan, Words* words) {
    words->add({"--size", kRunBytes, "--tmpfs", "/run", "--dir", "/run/lock"});
    words->show(plan.stateDir + "/ubi", std::string(kStateInside) + "/ubi");
    words->show(plan.stateDir + "/run/channel", kChannelInside);
    for (const char* path : {kToolInside, kInitInside})
        words->show(plan.toolProgram, path);
    if (!plan.hasHostPrograms) words->add({"--symlink", "/.shell", kRealShellInside});
}

bool isStateDirectory(const SandboxPlan& plan, const std::string& outside) {
    const auto same = [&](const char* path) { return outside == outsidePath(plan.stateDir, path); };
    return std::any_of(std::begin(kKeptDirectories), std::end(kKeptDirectories), same);
}

}  // namespace

std::vector<std::string> bubblewrapCommand(const SandboxPlan& plan, bool hasUserNamespace, int infoDescriptor,
                                           const std::vector<std::string>& command) {
    Words words{"bwrap", "--unshare-pid", "--unshare-ipc", "--unshare-uts", "--unshare-cgroup-try"};
    words.add({"--as-pid-1", "--die-with-parent", "--hostname", "device", "--cap-drop", "ALL"});
    words.add({"--info-fd", std::to_string(infoDescriptor)});
    for (const char* capability : kCapabilities) {
        if (hasUserNamespace) words.add({"--cap-add", capability});
    }
    addEnvironment(plan, &words);
    words.add({"--bind", plan.root, "/"});
    for (const char* path : kKeptDirectories) {
        std::string outside = outsidePath(plan.stateDir, path);
        for (const auto& [limited, tmpfs] : plan.limited) {
            if (limited == outside) outside = tmpfs;
        }
        words.add({"--bind", outside, path});
    }
    addHome(plan, &words);
    if (plan.hasHostPrograms) addHostPrograms(plan, &words);
    addDevice(plan, &words);
    for (const char* path : kNetworkFiles) {
        if (plan.usesHostNetwork) words.add({"--ro-bind-try", path, path});
    }
    for (const std::string& path : plan.binds)
        words.show(path, path);
    for (const auto& [source, inside] : plan.files)
        words.show(source, inside);
    words.add({"--"});
    std::vector<std::string>& all = words.all();
    all.insert(all.end(), command.begin(), command.end());
    return all;
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
