// What an update's root file system must hold so that the next update can follow.

#pragma once

#include <string>
#include <vector>

struct NewRoot {
    std::string image;  // its bytes, a file
    std::string
        oldRoot;  // the device's present one: what that lacks, the new one need not have; empty: not known
    std::string key;     // public key that the device holds; empty: none
    std::string folder;  // for what is written here
};

/// Only a squashfs is looked at, by unsquashfs.
/// \return a sentence for each thing that is missing or damaged.
std::vector<std::string> faultsOf(const NewRoot& root);
