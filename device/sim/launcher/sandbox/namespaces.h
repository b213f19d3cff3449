// The namespaces of a device: a user namespace, in which whoever started the launcher is root, a network, and mounts. The
// process that enters them becomes bubblewrap, which makes the others and the root directory.
//
// Among the mounts are folders with a size of their own, as the memory or the flash of a device limits them. Each is a
// tmpfs that only the run has: nothing is left mounted, however the run ends. Between runs its files stand in the state
// directory, like those of a folder without a limit.
#pragma once

#include "launcher/web/web_server.h"
#include "util/descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rovusim {

struct LimitedFolder {
    std::string outside;    // of the state directory
    std::string mountedOn;  // another folder, on which only the device has the tmpfs
    uint64_t bytes = 0;
};

/// Puts the files of the state directory into the tmpfs.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int fillLimitedFolder(int tmpfs, const std::string& outside);

/// Replaces the files of the state directory by those of the tmpfs.
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int keepLimitedFolder(int tmpfs, const std::string& outside);

/// A path of the tmpfs for this process, as long as the descriptor is open.
[[nodiscard]] std::string pathOfLimited(int tmpfs);

/// What the launcher gets from inside, by descriptors.
struct SandboxHandles {
    std::vector<zem::Descriptor> limited;    // a tmpfs for each folder
    std::vector<zem::Descriptor> listeners;  // of the web server
};

// A layer that takes what the run writes to the root file system, as the overlay of a device does.
struct RootLayer {
    std::string tree;   // what is below, and remains unchanged
    LimitedFolder top;  // of which the device's root is the folder "root"
};

struct NamespacePlan {
    bool usesHostNetwork = false;
    std::vector<ServedUrl> served;
    std::vector<LimitedFolder> limited;
    RootLayer root;
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
