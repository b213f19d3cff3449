// What stat tells of a volume's node. Its bytes are in a regular file; on a device it is a character device, and the
// program copies from it for that reason.
#pragma once

#include <linux/seccomp.h>
#include <string>

namespace rovusim {

/// The calls whose answers this changes where their path is relative to the working directory.
extern const int kStatCalls[2];

/// Answers a call of kStatCalls for the node of a volume that is there.
/// \return whether it did; if not, the kernel must carry the call out.
[[nodiscard]] bool answerVolumeStat(const std::string& stateDir, const seccomp_notif& call,
                                    seccomp_notif_resp* answer);

}  // namespace rovusim
