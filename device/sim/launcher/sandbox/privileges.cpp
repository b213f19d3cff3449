#include "launcher/sandbox/privileges.h"

#include "launcher/message.h"

#include <cerrno>
#include <cstdint>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace rovusim {
namespace {

// For owners and modes of files, processes of the namespace, and low ports.
constexpr int kKept[] = {
    CAP_CHOWN,  CAP_DAC_OVERRIDE, CAP_FOWNER,  CAP_FSETID,           CAP_KILL,
    CAP_SETGID, CAP_SETUID,       CAP_SETPCAP, CAP_NET_BIND_SERVICE, CAP_SYS_CHROOT,
};

uint64_t bitOf(int capability) {
    return uint64_t{1} << static_cast<unsigned>(capability);
}

}  // namespace

int dropHostPrivileges() {
    uint64_t kept = 0;
    for (int capability : kKept)
        kept |= bitOf(capability);
    for (int capability = 0; capability < 64; ++capability) {
        if ((kept & bitOf(capability)) != 0) continue;
        // The kernel has fewer than 64; EINVAL marks the first unknown one.
        if (prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
            if (errno == EINVAL) break;
            return cannot("drop", "capabilities", errno);
        }
    }
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct held[2] = {};
    if (syscall(SYS_capget, &header, held) != 0) return cannot("read", "capabilities", errno);
    for (unsigned half = 0; half < 2; ++half) {
        const uint32_t mask = static_cast<uint32_t>(kept >> (32 * half));
        held[half].permitted &= mask;
        held[half].effective &= mask;
        held[half].inheritable &= mask;
    }
    if (syscall(SYS_capset, &header, held) != 0) return cannot("drop", "capabilities", errno);
    return 0;
}

}  // namespace rovusim
