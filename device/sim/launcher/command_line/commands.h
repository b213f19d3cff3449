// The launcher's subcommands: each does its work, says on standard error what fails, and returns the exit status.
#pragma once

#include "rovu_sim/device_state.h"

#include <string>

namespace rovusim {

struct InitOptions {
    std::string stateDir;
    DeviceOptions device;
    std::string key, preshared;  // files; empty: none
};

int initCommand(const InitOptions& options);
int restartCommand(const std::string& stateDir);

/// Prints a summary of the device, for a person.
int showCommand(const std::string& stateDir);

struct CallsOptions {
    std::string stateDir;
    bool clear = false, last = false;
};

int callsCommand(const CallsOptions& options);

struct VolumeOptions {
    std::string direction;  // put or get
    std::string stateDir, name;
    std::string file;  // "-": standard input or output
};

int volumeCommand(const VolumeOptions& options);

}  // namespace rovusim
