// Reads the updater's progress file.
#pragma once

#include <string>

namespace rovusim {

struct Progress {
    std::string state;
    int attempts = 0;
    int percent = 0;  // 0 to 100
};

/// Reads the file at `path`. `progress` is written on success only.
/// \return 0, the positive errno value of the read, or EILSEQ for any other contents.
int readProgressFile(const std::string& path, Progress* progress);

/// The file's path in a device's /tmp, which this process knows as `tmp`.
std::string progressPathIn(const std::string& tmp);

/// The file's path in a device's state directory.
std::string progressPath(const std::string& stateDir);

}  // namespace rovusim
