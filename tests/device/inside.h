// The simulated device that these tests run in, seen from inside.
//
// Outside of it they must not run: they call the tools with which a real device is rewritten.

#pragma once

#include "rovu_sim/device_state.h"
#include "rovu_sim/sandbox_paths.h"
#include "run/settings.h"
#include "support/log_capture.h"
#include "support/program.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

/// The device's state directory. A device cannot reach it; these tests are handed its descriptor.
const std::string kState = "/proc/self/fd/8";

/// A device with its usual volumes, an empty work directory, and an empty call log.
class InDevice : public testing::Test {
public:
    InDevice();
    ~InDevice() override;

    /// Lets calls fail from now on, by a rule such as "ubimkvol:1=exit:4", and forgets those before. An empty
    /// rule lets them all succeed.
    void failCalls(const std::string& rule);

    /// What a killed command comes to: -1, or what this host's shell makes of it.
    static int killed();

    /// The tools that were called, in order, with a space after each.
    std::string tools() const;

    /// The errors and warnings logged since the last call, each with a newline.
    std::string messages();

    /// Makes the device report this model and this version of its root file system.
    void describe(const std::string& model, const std::string& rootfs);

    /// Puts a shell script in the place of the device's own command.
    void replaceTool(const std::string& name, const std::string& script);

    std::string volume(const std::string& name) const;
    void makeVolume(const char* name, const char* type);
    bool exists(const char* path) const { return access(path, F_OK) == 0; }

private:
    rovusim::Device device_;
    const std::string path_ = getenv("PATH");
    LogCapture log_{LOG_LVL_ERROR | LOG_LVL_WARNING};
    size_t seen_ = 0;  // bytes of the log's lines
};
