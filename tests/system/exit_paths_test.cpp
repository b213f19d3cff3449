// How a run ends that lacks what it ends with. The work directory is its lock, and goes even where the
// command that removes it fails. The report of the failure is lost where there is no room for it.

#include "world.h"

#include <csignal>
#include <regex>

TEST(ExitPaths, RemoveItAfterASignalWithoutTheRmCommand) {
    World world;
    world.device.failCall("rm=exit:1");
    world.device.failCall("ubiupdatevol=hang");
    world.device.start(world.args({}));
    ASSERT_TRUE(world.device.reaches("flashing overlay: ubiupdatevol"));
    world.device.signal(SIGTERM);
    const Outcome outcome = world.device.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, "Caught signal 15. Exiting...\n");
    EXPECT_EQ(world.device.state(), "flashing overlay");
    EXPECT_FALSE(world.device.has("/tmp/rovu"));
}

TEST(ExitPaths, KeepTheLastReportIfADownloadFillsTmp) {
    // Bytes of /tmp: too few for the scripts' tar, for the first image, for most of the second, and for its end.
    for (const uint64_t room : {12288U, 100000U, 200000U, 430080U}) {
        SCOPED_TRACE(room);
        rovusim::DeviceOptions options;
        options.tmpBytes = room;
        World world({"_prepare", "kernel", "rootfs"}, options);
        const Outcome outcome = world.run();
        EXPECT_EQ(outcome.status, 1);
        std::smatch failed;
        const std::regex warning("CURL download failed after ([0-9]+) bytes: \\(23\\) ");
        ASSERT_TRUE(std::regex_search(outcome.messages, failed, warning)) << outcome.messages;
        EXPECT_LE(std::stoull(failed.str(1)), room);
        EXPECT_NE(world.device.state().find("downloading "), std::string::npos);
        EXPECT_FALSE(world.device.has("/tmp/rovu"));
        world.expectUntouchedBoot();
    }
}
