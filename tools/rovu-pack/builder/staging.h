// A folder into which an update comes whole or not at all.

#pragma once

#include <string>
#include <vector>

/// Files are made in a hidden folder inside the target, and move to their names at the end.
class UpdateStaging {
public:
    UpdateStaging() = default;
    /// Removes what has not been published, and the target folder if open() made it and nothing is in it.
    ~UpdateStaging();
    UpdateStaging(const UpdateStaging&) = delete;
    UpdateStaging& operator=(const UpdateStaging&) = delete;

    /// Makes the target folder, whose parent must exist, if there is none.
    /// \return 0, or a positive errno value with a sentence in `*error`.
    int open(const std::string& target, std::string* error);

    /// \return the path of a file that may be made; publish() moves it.
    std::string pathOf(const std::string& name);

    /// \return whether publish() of `name` would replace the file at `path`.
    bool replaces(const std::string& name, const std::string& path) const;

    /// \return the path of a file that may be made for the time being.
    std::string scratchPath();

    /// Syncs all files and moves them into the target, over files of the same names, in the order in which
    /// pathOf() was first asked for them. \return 0, or a positive errno value with a sentence in `*error`.
    int publish(std::string* error);

private:
    std::string targetFolder;
    std::string folder;
    bool madeTarget = false;
    std::vector<std::string> names;
};
