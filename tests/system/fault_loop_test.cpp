// Every command of a full update fails once, in each of two ways.

#include "update_faults.h"

namespace {

// By these the device is restarted or left, after the switch that decides: nothing depends on their results.
// All others count. Even the first look-up of a volume, whose failure alone stops nothing, does: the volume
// is there, and cannot be made a second time.
bool isUnchecked(const std::string& command) {
    return command.find(": killall ") != std::string::npos || command.find(": reboot") != std::string::npos ||
           command.find(": rm -Rf") != std::string::npos;
}

class FaultLoop : public UpdateFaults, public testing::WithParamInterface<const char*> {};

TEST_P(FaultLoop, NoFailingCommandKeepsTheDeviceFromBooting) {
    ASSERT_EQ(run({}, {}, args()), 0);
    const Strings commands = device().commands();
    ASSERT_GE(commands.size(), 40U);
    for (size_t k = 0; k < commands.size(); ++k) {
        SCOPED_TRACE(commands[k]);
        const int status = run({"--fail", std::to_string(k + 1) + "=" + GetParam()}, {}, args());
        EXPECT_EQ(status, isUnchecked(commands[k]) ? 0 : 1);
        EXPECT_EQ(violations(status), Strings());
        EXPECT_EQ(device().waits().empty(), status != 0);
    }
}

INSTANTIATE_TEST_SUITE_P(By, FaultLoop, testing::Values("exit:1", "signal:KILL"));

}  // namespace
