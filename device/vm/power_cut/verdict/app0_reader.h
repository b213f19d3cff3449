// What a device finds in /app0 after a power cut: the file system's journal is replayed first.

#pragma once

#include "host/fault.h"
#include "ubi_tools/ref_checksums.h"

#include <map>
#include <string>

struct RefFile {
    bool exists = false;
    bool isReadable = false;  // it has the right checksum
    RefChecksumList list;
};

struct App0 {
    std::string fault;  // what is wrong with the file system, its tools or the key file; empty if nothing
    RefFile current[2];
    RefFile next[2];    // with ".new" after their names
    RefFile backup[2];  // with ".bak"

    /// \return how many reference files are readable under their own names.
    int readable() const { return (current[0].isReadable ? 1 : 0) + (current[1].isReadable ? 1 : 0); }
};

/// Reads images of /app0 by the tools of e2fsprogs. Equal images are read once.
class App0Reader {
public:
    /// \param folder for files of its own; it is there.
    /// \param keyFile what /app0/secrets/rovu/preshared must hold.
    App0Reader(std::string folder, std::string keyFile);

    const App0& read(const std::string& image);

    /// \return the number of different images so far.
    size_t count() const { return known_.size(); }

private:
    App0 readImage(const std::string& image) const;
    Fault extract(const std::string& image) const;
    RefFile readRef(const std::string& name) const;

    std::string folder_;
    std::string keyFile_;
    std::map<size_t, App0> known_;  // by hash
};
