// The updater's progress file as a reader outside sees it.
#pragma once

#include <string>

namespace rovusim {

struct Progress {
    std::string state;
    int attempts = 0;
    int percent = 0;  // 0 to 100
};

/// Reads the file at `path`. `progress` is written on success only.
/// \return 0, the positive errno value of the read, or EILSEQ for a text of another form.
int readProgressFile(const std::string& path, Progress* progress);

/// The file's place in a device's state directory.
std::string progressPath(const std::string& stateDir);

}  // namespace rovusim
