#include "launcher/syscalls/syscall_filter.h"

#include "launcher/message.h"
#include "rovu_sim/text_files.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <iterator>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <vector>

namespace rovusim {
namespace {

#if defined(__x86_64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr unsigned kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "the audit architecture of this processor is missing"
#endif

constexpr unsigned kRefused = SECCOMP_RET_ERRNO | EPERM;

sock_filter load(size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
}

sock_filter give(unsigned action) {
    return BPF_STMT(BPF_RET | BPF_K, action);
}

// Skips the next instruction unless the loaded word equals `value`.
sock_filter unlessEqualSkip(unsigned value) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
}

sock_filter ifEqualSkip(unsigned value) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
}

// Expects the call's number in the accumulator, and leaves it there.
void allowOnSocket(unsigned call, unsigned socket, std::vector<sock_filter>* program) {
    // The low half of the first argument: both architectures are little-endian.
    const sock_filter rule[] = {
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4),
        load(offsetof(seccomp_data, args)),
        unlessEqualSkip(socket),
        give(SECCOMP_RET_ALLOW),
        load(offsetof(seccomp_data, nr)),
    };
    program->insert(program->end(), std::begin(rule), std::end(rule));
}

// By a path, and not by a descriptor, as every program does with each file that it opens.
void passStat(unsigned call, std::vector<sock_filter>* program) {
    const sock_filter rule[] = {
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4),
        load(offsetof(seccomp_data, args)),
        unlessEqualSkip(static_cast<unsigned>(AT_FDCWD)),
        give(SECCOMP_RET_USER_NOTIF),
        load(offsetof(seccomp_data, nr)),
    };
    program->insert(program->end(), std::begin(rule), std::end(rule));
}

// Expects the call's number in the accumulator, and leaves it there.
void refuseIoctl(unsigned request, std::vector<sock_filter>* program) {
    const sock_filter rule[] = {
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 0, 4),
        load(offsetof(seccomp_data, args) + sizeof(uint64_t)),
        unlessEqualSkip(request),
        give(kRefused),
        load(offsetof(seccomp_data, nr)),
    };
    program->insert(program->end(), std::begin(rule), std::end(rule));
}

std::vector<sock_filter> filterProgram(const FilterPlan& plan) {
    std::vector<sock_filter> program = {
        load(offsetof(seccomp_data, arch)),
        ifEqualSkip(kArchitecture),
        give(kRefused),  // other architectures number their calls differently
        load(offsetof(seccomp_data, nr)),
    };
    for (int call : {SYS_sendmsg, SYS_read})
        allowOnSocket(static_cast<unsigned>(call), static_cast<unsigned>(plan.exemptSocket), &program);
    refuseIoctl(TIOCSTI, &program);
    refuseIoctl(TIOCLINUX, &program);
    for (int call : {SYS_keyctl, SYS_add_key, SYS_request_key, SYS_syslog}) {
        program.push_back(unlessEqualSkip(static_cast<unsigned>(call)));
        program.push_back(give(kRefused));
    }
    for (int call : plan.statCalls)
        passStat(static_cast<unsigned>(call), &program);
    for (int call : plan.calls) {
        program.push_back(unlessEqualSkip(static_cast<unsigned>(call)));
        program.push_back(give(SECCOMP_RET_USER_NOTIF));
    }
    program.push_back(give(plan.all ? SECCOMP_RET_USER_NOTIF : SECCOMP_RET_ALLOW));
    return program;
}

}  // namespace

int writeSyscallFilter(const FilterPlan& plan, zem::Descriptor* file) {
    const std::vector<sock_filter> instructions = filterProgram(plan);
    file->reset(memfd_create("filter", MFD_CLOEXEC));
    if (!file->isOpen()) return cannot("make", "the filter of system calls", errno);
    const int rc = writeFully(file->get(), reinterpret_cast<const char*>(instructions.data()),
                              instructions.size() * sizeof(sock_filter));
    return rc == 0 ? 0 : cannot("make", "the filter of system calls", rc);
}

}  // namespace rovusim
