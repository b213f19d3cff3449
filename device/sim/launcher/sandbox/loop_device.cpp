#include "launcher/sandbox/loop_device.h"

#include "launcher/message.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

constexpr unsigned kLoopMajor = 7;
constexpr int kAttempts = 200;
constexpr useconds_t kPause = 5000;  // microseconds between attempts

// A container's /dev may lack the node of a loop device that the kernel has; a temporary node replaces it.
int openLoopNode(int number, const std::string& scratch, zem::Descriptor* node) {
    const std::string path = "/dev/loop" + std::to_string(number);
    zem::Descriptor opened(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!opened.isOpen() && errno == ENOENT) {
        const std::string own = scratch + ".loop" + std::to_string(getpid());
        if (mknod(own.c_str(), S_IFBLK | 0600, makedev(kLoopMajor, static_cast<unsigned>(number))) != 0)
            return errno;
        opened.reset(open(own.c_str(), O_RDWR | O_CLOEXEC));
        const int rc = opened.isOpen() ? 0 : errno;
        unlink(own.c_str());
        if (rc != 0) return rc;
    }
    if (!opened.isOpen()) return errno;
    *node = std::move(opened);
    return 0;
}

int tryFreeDevice(int control, int backing, const std::string& file, LoopDevice* loop) {
    const int number = ioctl(control, LOOP_CTL_GET_FREE);
    if (number < 0) return errno;
    zem::Descriptor node;
    if (int rc = openLoopNode(number, file, &node); rc != 0) return rc;
    loop_config config = {};
    config.fd = static_cast<__u32>(backing);
    config.info.lo_flags = LO_FLAGS_READ_ONLY | LO_FLAGS_AUTOCLEAR;
    if (ioctl(node.get(), LOOP_CONFIGURE, &config) != 0) return errno;
    struct stat info;
    if (fstat(node.get(), &info) != 0) return errno;
    loop->holder = std::move(node);
    loop->number = info.st_rdev;
    return 0;
}

}  // namespace

int attachLoopDevice(const std::string& file, LoopDevice* loop) {
    zem::Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!control.isOpen()) return cannot("use", "/dev/loop-control", errno);
    zem::Descriptor backing(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!backing.isOpen()) return cannot("open", file, errno);
    int rc = 0;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        rc = tryFreeDevice(control.get(), backing.get(), file, loop);
        // Another launcher may have taken the device between the two calls.
        if (rc != EBUSY && rc != ENXIO && rc != ENODEV) break;
        usleep(kPause);
    }
    return rc == 0 ? 0 : cannot("attach a loop device to", file, rc);
}

}  // namespace rovusim
