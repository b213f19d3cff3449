// Programs of another processor than the workstation's, which run through qemu-user.
#pragma once

#include <string>

namespace rovusim {

/// Whether the file is an ELF program of another processor.
[[nodiscard]] bool isOfOtherProcessor(const std::string& program);

/// Lets the kernel run programs like this one through qemu-user: in the user namespace of this process alone, where
/// the kernel has binfmt_misc for each (Linux 6.7 and later), else by what the host has registered.
/// \param scratch an empty folder to mount on, in a mount namespace of this process alone
/// \return 0, or a positive errno value after a message. See Documentation/admin-guide/binfmt-misc.rst of Linux.
[[nodiscard]] int registerProcessorOf(const std::string& program, bool hasUserNamespace,
                                      const std::string& scratch);

}  // namespace rovusim
