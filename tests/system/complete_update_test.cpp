// One update from its URL to the restart, and the next one back.

#include "support/crypto.h"
#include "support/update.h"
#include "world.h"

#include <regex>

// All that the program says when it is most verbose, and the commands that it runs, each in its state, are in two files.
TEST(CompleteUpdate, RunsEveryCommandInItsStateAndSaysSo) {
    World world;
    const Outcome outcome = world.run({"-vv"});
    const std::string log = readWholeFile(ROVU_SYSTEM_TESTS "/complete_update.log");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, std::regex_replace(log, std::regex("URL"), world.web.url()));
    EXPECT_EQ(world.device.commands(),
              split(readWholeFile(ROVU_SYSTEM_TESTS "/complete_update.commands"), '\n'));
    EXPECT_EQ(world.device.waits("complete"), (Strings{"2", "1", "5", "5"}));
    EXPECT_EQ(world.trace(), (Strings{"_prepare", "before", "pre", "post", "between"}));
    EXPECT_EQ(world.web.requests(), "/spec 200\n/scripts 200\n/kernel 200\n/rootfs 200\n");
}

TEST(CompleteUpdate, LeavesAnotherSetThatBootsAndCanUpdateBack) {
    World world;
    Device& device = world.device;
    const std::string before = device.get("/app0/.ubiRefChk2");
    EXPECT_EQ(world.run().status, 0);
    EXPECT_EQ(world.written(), (Strings{"k1", "k1_root", "k1_data"}));
    EXPECT_EQ(device.bootswitcher(), "0A0A01");
    EXPECT_TRUE(rovusim::rebootRequested(device.directory));
    EXPECT_EQ(device.get("/tmp/rovu.progress"), progressFile("complete"));
    EXPECT_FALSE(device.has("/tmp/rovu"));
    const std::string kernel = md5Hex(world.kernel), rootfs = md5Hex(world.rootfs);
    const std::string newSet = kernel + " k1\n" + rootfs + " k1_root\n";
    const std::string merged = referenceFile("0123456789abcdef0123456789abcdef k0\n" + newSet);
    EXPECT_EQ(device.get("/app0/.ubiRefChk1"), merged);
    EXPECT_EQ(device.get("/app0/.ubiRefChk2"), merged);
    EXPECT_EQ(device.get("/app0/.ubiRefChk2.bak"), before);

    ASSERT_EQ(rovusim::restartDevice(device.directory, nullptr), 0);
    const Outcome back = world.run({"-v"});
    EXPECT_EQ(back.status, 0);
    EXPECT_TRUE(back.said("Installed versions: kernel 4.1.0.0, rootfs 3.0.7.0"));
    EXPECT_TRUE(back.said("Switching over uboot-env to active set 0..."));
    EXPECT_TRUE(device.volume("k0") == world.kernel && device.volume("k0_root") == world.rootfs);
    EXPECT_EQ(device.bootswitcher(), "0A0A00");
    const std::string both = kernel + " k0\n" + newSet + rootfs + " k0_root\n";
    EXPECT_EQ(device.get("/app0/.ubiRefChk2"), referenceFile(both));
    EXPECT_EQ(device.get("/app0/.ubiRefChk2.bak"), merged);
}
