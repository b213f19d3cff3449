// A file without a name: nothing is left of it, however the process ends.

#pragma once

#include "fault.h"
#include "util/descriptor.h"

#include <string>

class TemporaryFile {
public:
    /// Makes an empty file in the folder that the environment's TMPDIR names, or else in /tmp.
    [[nodiscard]] Fault open();

    /// \return a path under which this process can open the file, as long as this object lives.
    std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

private:
    zem::Descriptor file_;
};
