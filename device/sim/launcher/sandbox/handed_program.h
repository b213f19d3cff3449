// A program of the workstation that runs inside a device.
//
// The device's root file system need not have its loader and libraries, or has others of the same names. So it is
// handed in with its own, at a fixed path, and started by its own loader.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rovusim {

struct HandedProgram {
    std::string path;                  // inside
    std::vector<std::string> command;  // that starts it; the command's own words follow
    std::vector<std::pair<std::string, std::string>>
        files;  // of the workstation, and where they stand inside
};

/// \param path absolute, on the workstation
/// \param argv0 the name that the program is to see
[[nodiscard]] HandedProgram handProgram(const std::string& path, const std::string& argv0);

/// A shell script that starts it, for a place where the program itself could not be started; empty: it could.
[[nodiscard]] std::string starterOf(const HandedProgram& program);

}  // namespace rovusim
