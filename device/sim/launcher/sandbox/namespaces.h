// The namespaces of a device: a user namespace, in which whoever started the launcher is root, and a network.
//
// The process that enters them becomes bubblewrap, which makes the others and the root directory.
#pragma once

#include "launcher/sandbox/limited_folder.h"
#include "launcher/web/served_url.h"
#include "util/descriptor.h"

#include <string>
#include <vector>

namespace rovusim {

/// What the launcher gets from inside, by descriptors.
struct SandboxHandles {
    std::vector<zem::Descriptor> limited;    // a tmpfs for each folder
    std::vector<zem::Descriptor> listeners;  // of the web server
};

struct NamespacePlan {
    bool usesHostNetwork = false;
    std::vector<ServedUrl> served;
    std::vector<LimitedFolder> limited;
    std::string foreignProgram;  // a program of another processor that is to run inside; empty: none
    std::string scratch;         // an empty folder to mount on
};

/// Tries a user namespace in another process.
/// \return 0, also for root where there is none, or a positive errno value after a message.
[[nodiscard]] int tryUserNamespace();

/// Moves this process, which has no threads, into the namespaces.
/// \param hasUserNamespace whether root inside is root in a user namespace only. Root of the host goes on without one
/// where the kernel has none.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int enterNamespaces(const NamespacePlan& plan, bool* hasUserNamespace, SandboxHandles* handles);

}  // namespace rovusim
