// Every command of a full update fails once, in each of two ways.

#include "world.h"

namespace {

constexpr size_t kShards = 4;

// By these the device is restarted or left, after the switch that decides: nothing depends on their results.
// All others count. Even the first look-up of a volume, whose failure alone stops nothing, does: the volume
// is there, and cannot be made a second time.
bool isUnchecked(const std::string& command) {
    return command.find(": killall ") != std::string::npos || command.find(": reboot") != std::string::npos ||
           command.find(": rm -Rf") != std::string::npos;
}

void expectSafeEnd(const World& world, const Outcome& outcome, const std::string& failed) {
    const bool completes = isUnchecked(failed);
    EXPECT_EQ(outcome.status, completes ? 0 : 1);
    EXPECT_EQ(world.device.state(), completes ? "complete" : "error");
    EXPECT_FALSE(world.device.has("/tmp/rovu"));
    if (completes) {
        EXPECT_EQ(world.device.bootswitcher(), "0A0A01");
    } else {
        EXPECT_EQ(world.device.waits(), Strings());
        world.expectUntouchedBoot();
    }
}

class FaultLoop : public testing::TestWithParam<size_t> {};

TEST_P(FaultLoop, NoFailingCommandKeepsTheDeviceFromBooting) {
    std::vector<std::string> commands;
    {
        World clean;
        ASSERT_EQ(clean.run().status, 0);
        commands = clean.device.commands();
    }
    ASSERT_GE(commands.size(), 40U);
    for (size_t k = GetParam(); k < commands.size(); k += kShards) {
        for (const char* how : {"exit:1", "signal:KILL"}) {
            SCOPED_TRACE(commands[k] + " fails by " + how);
            World world;
            world.device.failCall(std::to_string(k + 1) + "=" + how);
            const Outcome outcome = world.run();
            expectSafeEnd(world, outcome, commands[k]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Part, FaultLoop, testing::Range<size_t>(0, kShards));

}  // namespace
