// A folder that gets a complete update or nothing.

#pragma once

#include "host/fault.h"
#include "util/descriptor.h"

#include <string>
#include <vector>

/// Files are made in a hidden folder inside the target, so that a rename never crosses file systems, and
/// move to their names at the end.
class UpdateStaging {
public:
    UpdateStaging() = default;
    /// Removes what has not been published, and the target folder if prepare() made it and nothing is in it.
    ~UpdateStaging();
    UpdateStaging(const UpdateStaging&) = delete;
    UpdateStaging& operator=(const UpdateStaging&) = delete;

    /// Makes the hidden folder, and the target folder if missing; its parent must exist. Removes hidden folders
    /// that builds left behind when they were killed.
    Fault prepare(const std::string& target);

    /// \return the path of a file that may be made; publish() moves it.
    std::string pathOf(const std::string& name);

    /// \return whether publish() of `name` would replace the file at `path`.
    bool replaces(const std::string& name, const std::string& path) const;

    /// \return the hidden folder; empty before prepare().
    const std::string& folder() const { return folder_; }

    /// Syncs all files and moves them into the target, over files of the same names, in the order in which
    /// pathOf() was first asked for them.
    Fault publish();

private:
    std::string targetFolder_;
    std::string folder_;
    zem::Descriptor lock_;  // on the folder
    bool madeTarget_ = false;
    std::vector<std::string> names_;
};
