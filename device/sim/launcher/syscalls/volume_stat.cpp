#include "launcher/syscalls/volume_stat.h"

#include "launcher/tools/ubi_print.h"
#include "rovu_sim/volume_store.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>

namespace rovusim {
namespace {

constexpr mode_t kNode = S_IFCHR | 0600;

void* pointerTo(uint64_t address) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}

// The first bytes of the caller's path: more than a node's name has.
std::string pathOf(const seccomp_notif& call) {
    char path[32] = {};
    // Byte by byte up to a page's end: the next page may not be there.
    const size_t left = 4096 - (call.data.args[1] & 4095);
    const iovec local = {path, sizeof path - 1};
    const iovec remote[] = {{pointerTo(call.data.args[1]), std::min(left, sizeof path - 1)}};
    if (process_vm_readv(static_cast<pid_t>(call.pid), &local, 1, remote, 1, 0) < 0) return "";
    return path;
}

template <class Answer>
bool write(const seccomp_notif& call, uint64_t address, const Answer& bytes) {
    const iovec local = {const_cast<Answer*>(&bytes), sizeof bytes};
    const iovec remote = {pointerTo(address), sizeof bytes};
    return process_vm_writev(static_cast<pid_t>(call.pid), &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(sizeof bytes);
}

}  // namespace

const int kStatCalls[2] = {SYS_newfstatat, SYS_statx};

bool answerVolumeStat(const std::string& stateDir, const seccomp_notif& call, seccomp_notif_resp* answer) {
    uint32_t id = 0;
    Volume volume;
    if (!parseVolumeNode(pathOf(call), &id) || findVolumeById(stateDir, id, &volume) != 0) return false;
    struct stat info;
    if (stat(volumePath(stateDir, id).c_str(), &info) != 0) return false;
    const dev_t number = makedev(kUbiMajor, id + 1);
    bool isWritten = false;
    if (call.data.nr == SYS_newfstatat) {
        info.st_mode = kNode;
        info.st_rdev = number;
        info.st_size = 0;
        isWritten = write(call, call.data.args[2], info);
    } else {
        struct statx extended = {};
        extended.stx_mask = STATX_BASIC_STATS;
        extended.stx_mode = kNode;
        extended.stx_nlink = 1;
        extended.stx_blksize = static_cast<__u32>(info.st_blksize);
        extended.stx_ino = info.st_ino;
        extended.stx_rdev_major = major(number);
        extended.stx_rdev_minor = minor(number);
        isWritten = write(call, call.data.args[4], extended);
    }
    answer->error = isWritten ? 0 : -EFAULT;
    return true;
}

}  // namespace rovusim
