// How a run ends that lacks what it ends with. The work directory is its lock, and goes even where the
// command that removes it fails. The report of the failure is lost where there is no room for it.

#include "world.h"

#include <csignal>

TEST(ExitPaths, RemoveTheWorkDirectoryWithoutTheRmCommand) {
    World world;
    world.device.failCall("rm=exit:1");
    const Outcome outcome = world.run();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(world.device.state(), "complete");
    EXPECT_FALSE(world.device.has("/tmp/rovu"));
}

TEST(ExitPaths, RemoveItAfterASignalWithoutTheRmCommand) {
    World world;
    world.device.failCall("rm=exit:1");
    world.device.failCall("ubiupdatevol=hang");
    world.device.start(world.args({}));
    ASSERT_TRUE(world.device.reaches("flashing overlay"));
    world.device.signal(SIGTERM);
    const Outcome outcome = world.device.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, "Caught signal 15. Exiting...\n");
    EXPECT_EQ(world.device.state(), "flashing overlay");
    EXPECT_FALSE(world.device.has("/tmp/rovu"));
}

TEST(ExitPaths, KeepTheLastReportIfADownloadFillsTmp) {
    rovusim::DeviceOptions options;
    options.tmpBytes = 200000;  // the first image fits
    World world({"kernel", "rootfs"}, options);
    const Outcome outcome = world.run();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.messages.find(": (23) "), std::string::npos) << outcome.messages;
    EXPECT_EQ(world.device.state(), "downloading images");
    EXPECT_FALSE(world.device.has("/tmp/rovu"));
    world.expectUntouchedBoot();
}
