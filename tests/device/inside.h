// The device that these tests run in, seen from inside.

#pragma once

#include "logging/log.h"
#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "settings.h"
#include "support/scratch.h"
#include "work_dir.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

/// The rows of a table.
template <typename... Columns>
using Table = std::vector<std::tuple<Columns...>>;

/// A device with its usual volumes, an empty work directory, and an empty call log.
class InDevice : public testing::Test {
public:
    InDevice();
    ~InDevice() override;

    /// Lets calls go wrong from now on, by a rule such as "ubimkvol:1=exit:4", and forgets those before.
    void failCalls(const std::string& rule);

    /// What a killed command comes to: -1, or what this host's shell makes of it.
    static int killed();

    /// The tools that were called, with blanks between.
    std::string tools() const;

    /// The texts logged since the last look, each with a newline: errors and warnings, unless all is wanted.
    std::string messages();
    void listenTo(unsigned int levels);

    /// Makes the device tell this model and this version of its root file system.
    void describe(const std::string& model, const std::string& rootfs);

    /// Puts a shell script ahead of the device's own command.
    void replaceTool(const std::string& name, const std::string& script);

    std::string volume(const std::string& name) const;
    void makeVolume(const char* name, const char* type);
    bool exists(const char* path) const { return access(path, F_OK) == 0; }

private:
    rovusim::Device device_;
    const std::string path_ = getenv("PATH");
    char* log_ = nullptr;
    size_t logSize_ = 0, seen_ = 0;
    FILE* const stream_ = open_memstream(&log_, &logSize_);
    LOG_Channel* const channel_ = LOG_channel_new(stream_, "test");
};
