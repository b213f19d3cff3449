// The tars of an update: those that a spec names, and the author's files.

#pragma once

#include "archive/tar_archive.h"
#include "spec_view/spec_view.h"

#include <cstdint>

/// A member for which the device will ask.
struct RequiredMember {
    std::string key;  // where the spec names it
    std::string name;
    bool isImage;
};

struct TarFacts {
    std::string localName;  // in the device's work directory
    std::string keyPrefix;  // of url, hash and dlsize in the spec
    std::string url;
    std::string hash;
    double limit;      // bytes; 0: none
    std::string kind;  // "kernel" or "rootfs", as the spec has it; empty: the script tar
    std::vector<RequiredMember> required;
    double volumeSize;     // bytes that the spec gives the image's volume; 0: the script tar
    std::string version;   // that the spec gives the image; empty: the script tar
    std::string imageMd5;  // that the spec gives; empty: the script tar
    std::string path;      // where the file should be; empty: nowhere
    bool found = false;    // it is there, and `size` is its own
    uint64_t size = 0;     // bytes
    bool opened = false;   // `members` are its own
    std::vector<TarMember> members;
    std::string processor;  // that the image is for; empty: not known
    uint64_t lebSize = 0;   // bytes of the erase blocks that the image, a UBIFS, is for; 0: not known

    /// Bytes of the file; if it is not at hand, those that the spec allows; 0: not known.
    uint64_t expectedSize() const;
    /// The last member of that name, which an extraction leaves; null if there is no such member.
    const TarMember* member(const std::string& name) const;
};

using Tars = std::vector<TarFacts>;

/// Those that have a URL: the script tar first, if the device fetches one, then the images' in the spec's
/// order.
Tars tarsOf(const SpecView& spec);

/// Whether a member of that name is extracted outside the directory it is to be extracted to.
bool climbs(const std::string& name);

/// \return the tar of that local name; null if there is none.
const TarFacts* findTar(const Tars& tars, const std::string& localName);
