// Runs that are told to end.

#include "world.h"

#include <csignal>
#include <unistd.h>

namespace {

void expectEndBySignal(Device& device, const std::string& state, int signal) {
    ASSERT_TRUE(device.reaches(state)) << state;
    usleep(100000);  // what the state is entered for begins after it
    device.signal(signal);
    const Outcome outcome = device.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, "Caught signal " + std::to_string(signal) + ". Exiting...\n");
    EXPECT_EQ(device.state(), state);
    EXPECT_FALSE(device.has("/tmp/rovu"));
}

}  // namespace

TEST(Signals, EndARunInACommandOrInItsLastWaits) {
    const struct {
        const char *failure, *state;
        int signal;
    } rows[] = {
        {"sh:2=hang", "running scripts", SIGTERM},
        {"cat=hang", "flashing overlay", SIGTERM},
        {"ubiupdatevol:2=hang", "flashing images", SIGTERM},
        {"reboot=hang", "complete", SIGTERM},
        // While a command runs SIGINT has no effect; here the run itself waits.
        {"reboot=hang", "complete", SIGINT},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failure);
        World world;
        world.device.failCall(row.failure);
        world.device.start(world.args());
        expectEndBySignal(world.device, row.state, row.signal);
    }
}

TEST(Signals, EndARunInATransferThatHasStalled) {
    const LoopbackPort silent(true);
    for (int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        World world;  // the progress file of an earlier run would tell too soon that the state is reached
        world.device.start({silent.url()});
        expectEndBySignal(world.device, "downloading spec", signal);
    }
    World world;
    world.set({"kernel", "url", "'" + silent.url() + "'"});
    world.device.start(world.args());
    expectEndBySignal(world.device, "downloading images", SIGTERM);
}
