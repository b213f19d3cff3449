#include "launcher/syscalls/syscall_names.h"

#include <sys/syscall.h>

namespace rovusim {
namespace {

struct SyscallName {
    const char* name;
    int number;
};
constexpr SyscallName kSyscallNames[] = {
#include "syscall_names.inc"
};

}  // namespace

bool syscallNumber(const std::string& name, int* number) {
    for (const SyscallName& row : kSyscallNames) {
        if (name != row.name) continue;
        *number = row.number;
        return true;
    }
    return false;
}

std::string syscallName(int number) {
    for (const SyscallName& row : kSyscallNames) {
        if (number == row.number) return row.name;
    }
    return std::to_string(number);
}

}  // namespace rovusim
