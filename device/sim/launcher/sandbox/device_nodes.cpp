#include "launcher/sandbox/device_nodes.h"

#include "launcher/message.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/volume_store.h"

#include <cerrno>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace rovusim {
namespace {

struct UsualNode {
    const char* name;
    unsigned major;
    unsigned minor;
};
constexpr UsualNode kUsualNodes[] = {
    {"null", 1, 3},
    {"zero", 1, 5},
    {"full", 1, 7},
    {"random", 1, 8},
    {"urandom", 1, 9},
    {"tty", 5, 0},
    // The UBI device itself is only named, never read or written.
    {"ubi0", 1, 3},
};

struct UsualLink {
    const char* name;
    const char* target;
};
constexpr UsualLink kUsualLinks[] = {
    {"fd", "/proc/self/fd"},
    {"stdin", "/proc/self/fd/0"},
    {"stdout", "/proc/self/fd/1"},
    {"stderr", "/proc/self/fd/2"},
};

int makeNode(const std::string& path, mode_t type, dev_t number) {
    if (mknod(path.c_str(), type | 0600, number) != 0) return cannot("make the node", path, errno);
    if (chmod(path.c_str(), 0666) != 0) return cannot("open up", path, errno);
    return 0;
}

int makeLink(const std::string& target, const std::string& path) {
    if (symlink(target.c_str(), path.c_str()) != 0) return cannot("link", path, errno);
    return 0;
}

}  // namespace

int makeDeviceNodes(const SandboxPlan& plan, const std::string& directory) {
    for (const UsualNode& node : kUsualNodes) {
        const std::string path = directory + "/" + node.name;
        if (int rc = makeNode(path, S_IFCHR, makedev(node.major, node.minor)); rc != 0) return rc;
    }
    for (const UsualLink& link : kUsualLinks) {
        if (int rc = makeLink(link.target, directory + "/" + link.name); rc != 0) return rc;
    }
    const std::string shared = directory + "/shm";
    if (mkdir(shared.c_str(), 0755) != 0 || chmod(shared.c_str(), 01777) != 0)
        return cannot("make", shared, errno);

    std::vector<Volume> volumes;
    if (int rc = listVolumes(plan.stateDir, &volumes); rc != 0)
        return cannot("read the volumes of", plan.stateDir, rc);
    for (const Volume& volume : volumes) {
        const std::string path = directory + "/ubi0_" + std::to_string(volume.id);
        if (int rc = makeLink(volumePath(kStateInside, volume.id), path); rc != 0) return rc;
    }
    return 0;
}

}  // namespace rovusim
