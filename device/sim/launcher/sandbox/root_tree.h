// The root file system of a device: a folder of the state directory.
//
// It comes from what the device was made with, or from the image that its root volume holds since an update.
#pragma once

#include <csignal>
#include <string>

namespace rovusim {

/// The folder, which stands beside the other folders of the state directory.
[[nodiscard]] std::string rootTreeOf(const std::string& stateDir);

/// Whether it is made of the workstation's programs, which each run shows in it.
[[nodiscard]] bool isOfHostPrograms(const std::string& stateDir);

/// Makes the tree unless it is that of the set that runs already. What is unpacked cannot harm the host.
/// \param signalMask of the programs that do it
/// \return 0, or a positive errno value after a message.
[[nodiscard]] int prepareRootTree(const std::string& stateDir, const sigset_t& signalMask);

}  // namespace rovusim
