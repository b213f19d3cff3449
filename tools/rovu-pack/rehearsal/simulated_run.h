// One run of an update on a simulated device, and what it did.

#pragma once

#include "host/fault.h"
#include "planner/fleet_plan.h"
#include "rehearsal/new_root.h"
#include "spec_view/tars.h"

#include <string>
#include <vector>

/// What is the same for all devices of a rehearsal.
struct RehearsalFiles {
    std::string spec;            // its file
    std::string folder;          // with the files that are served
    std::string secrets;         // key file as the device holds it; empty: none
    std::string key;             // public key that the device holds; empty: it is told not to verify
    std::string program;         // the device's program, built for this machine; empty: the one beside this
    std::string health;          // command for a device after its restart; empty: its shell is only started
    unsigned scriptSeconds = 0;  // that a script may run
    bool hostTools = false;      // devices without a root file system have this machine's programs
};

/// What a device runs on, for a sentence. \param root of its kind, empty if it names none.
std::string nameOfRoot(const std::string& root, bool hostTools);

/// A command that the device ran.
struct RanCommand {
    std::string state;               // that the progress file named then
    std::vector<std::string> words;  // without the folder of the program
    double waited = 0;               // seconds that were skipped before the next command
};

struct SimulatedVolume {
    std::string name;
    uint32_t id = 0;
    uint64_t size = 0;  // bytes that it has room for
    std::string md5;    // of what it holds
};

struct SimulatedRun {
    int status = 0;     // of the device's program
    std::string state;  // the last one that the progress file named; empty: none
    std::vector<RanCommand> commands;
    std::vector<SimulatedVolume> before;
    std::vector<SimulatedVolume> after;
    bool restarts = false;          // the device asked for its restart
    unsigned nextSet = 0;           // that the boot loader starts
    std::string bootFault;          // why that set does not start; empty: it does
    std::string log;                // what the program said
    std::vector<std::string> lost;  // files without which no update runs, and that are gone
    NewRootReport root;             // of the set that the device has restarted into
    int healthStatus = 0;           // of the command after the restart, if there was one
    std::string healthLog;
};

/// Makes a device of the kind that `planned` is for, with its volumes and its room, runs the update on it and, if it asks for that, restarts it.
/// \param folder an empty one, where the device stays.
/// \return a fault if the device cannot be made or run, which is no fault of the update.
Fault runOnSimulator(const FleetRow& planned, uint32_t activeSet, const RehearsalFiles& files,
                     const Tars& tars, const std::string& folder, SimulatedRun* run);
