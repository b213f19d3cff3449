// Runs that are told to end.

#include "world.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void expectEndBySignal(Device& device, const std::string& point, int signal) {
    ASSERT_TRUE(device.reaches(point)) << point;
    device.signal(signal);
    const Outcome outcome = device.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, "Caught signal " + std::to_string(signal) + ". Exiting...\n");
    EXPECT_EQ(device.state(), point.substr(0, point.find(':')));
    EXPECT_FALSE(device.has("/tmp/rovu"));
}

}  // namespace

TEST(Signals, EndARunInACommandOrInItsLastWaits) {
    const struct {
        const char *failure, *point;
        int signal;
    } rows[] = {
        {"sh:2=hang", "running scripts: sh", SIGTERM},
        {"cat=hang", "flashing overlay: cat", SIGTERM},
        {"ubiupdatevol:2=hang", "flashing images: ubiupdatevol", SIGTERM},
        {"reboot=hang", "complete", SIGTERM},
        // While a command runs SIGINT has no effect; here the run itself waits.
        {"reboot=hang", "complete", SIGINT},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failure);
        World world;
        world.device.failCall(row.failure);
        world.device.failCall("rm=exit:1");  // the work directory is the lock, and goes all the same
        world.device.start(world.args());
        expectEndBySignal(world.device, row.point, row.signal);
    }
}

TEST(Signals, EndARunInATransferThatHasStalled) {
    const LoopbackPort silent(true);
    const auto expectEndInTransfer = [&silent](Device& device, const char* state, int signal) {
        ASSERT_TRUE(device.reaches(state)) << state;
        const int connection = accept(silent.fd, nullptr, nullptr);
        expectEndBySignal(device, state, signal);
        close(connection);
    };
    for (int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        World world;  // the progress file of an earlier run would tell too soon that the state is reached
        world.device.start({silent.url()});
        expectEndInTransfer(world.device, "downloading spec", signal);
    }
    World world;
    world.set({"kernel", "url", "'" + silent.url() + "'"});
    world.device.start(world.args());
    expectEndInTransfer(world.device, "downloading images", SIGTERM);
}
