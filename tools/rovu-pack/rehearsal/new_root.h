// What an update's root file system must hold so that the next update can follow.

#pragma once

#include "host/fault.h"

#include <string>
#include <vector>

struct NewRoot {
    std::string image;  // its bytes, a file
    std::string
        oldRoot;  // the device's present one: what that lacks, the new one need not have; empty: not known
    std::string key;                     // public key that the device holds; empty: none
    std::string folder;                  // for what is written here
    std::vector<std::string> simulator;  // the command that runs another one in a device, without its device
};

struct NewRootReport {
    bool isRead = true;               // false: it cannot be unpacked on this machine, and `notes` say why
    std::vector<std::string> faults;  // what is missing or damaged, as sentences
    std::vector<std::string> notes;
};

/// Only a squashfs is looked at, by unsquashfs, which runs in a sandbox: the image may be made to harm it.
/// \return a fault if that cannot be made.
Fault lookInto(const NewRoot& root, NewRootReport* report);
