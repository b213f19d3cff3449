// One complete update under valgrind.

#include "world.h"

TEST(Memory, CompleteUpdateLeaksNothingAndReadsNothingUnset) {
    rovusim::DeviceOptions options;
    options.root = rovusim::kHostRoot;
    World world(World::allSteps(), options);
    const Outcome outcome =
        world.run({"-vv"}, {"valgrind", "--quiet", "--vgdb=no", "--error-exitcode=99", "--leak-check=full",
                            "--errors-for-leak-kinds=definite,possible"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(world.device.bootswitcher(), "0A0A01");
}
