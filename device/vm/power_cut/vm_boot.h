// Boots a state that a power cut left, lets the running device judge it, and updates it again.

#pragma once

#include "verdict/judge.h"

#include <string>

struct BootOptions {
    std::string boot;     // the program device/vm/boot
    std::string files;    // the image of the files that the target VM serves
    std::string command;  // a script for the target VM: device-state, the owner's file, and the next update
    std::string folder;   // for the target VMs
    std::string owner;    // what the owner's file must hold
    std::string keyFile;  // what /app0 must hold; see App0Reader
};

/// Boots `disk`, whose target VM gets the folder NAME in the options' folder. The folder is removed unless there is a
/// fault. May run in several threads at a time, with different names.
/// \param expected the verdict on the disk's contents, which the running device must confirm.
/// \return what is wrong with the device or its next update, or why no target VM can be started; empty if nothing.
std::string bootAndUpdate(const BootOptions& options, const ExpectedSets& sets, const Verdict& expected,
                          const std::string& disk, const std::string& name);
