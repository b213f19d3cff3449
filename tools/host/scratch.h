// A folder for the time of one piece of work, and a file without a name: nothing is left of it, however the process ends.

#pragma once

#include "host/fault.h"
#include "util/descriptor.h"

#include <string>

class ScratchFolder {
public:
    ScratchFolder() = default;
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    /// Makes an empty folder, which only its owner can enter, in the one that the environment's TMPDIR names, or
    /// else in /tmp. It is removed with its contents by the destructor. Folders of killed runs are removed first.
    Fault make();

    /// Absolute. Empty before make().
    const std::string& path() const { return path_; }

private:
    std::string path_;
    zem::Descriptor lock_;  // on the folder
};

class TemporaryFile {
public:
    /// Makes an empty file in the folder that the environment's TMPDIR names, or else in /tmp.
    [[nodiscard]] Fault open();

    /// \return a path under which this process can open the file, as long as this object lives.
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

private:
    zem::Descriptor file_;
};
