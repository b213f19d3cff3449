// What rovu-pack leaves behind if it is ended in the middle of its work, or if the disk is full: nothing.

#include "support/program.h"
#include "support/scratch.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
constexpr char kPack[] = ROVU_PACK_PROGRAM;
constexpr char kManifest[] =
    "{ version = 1, hardware = 'RV-20', clone_overlay = 1, encr_key_offset = 0,\n"
    "  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },\n"
    "  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' } }\n";
constexpr unsigned kPollMicroseconds = 10000;
constexpr char kBuild[] =
    "build m.lua --key keys/private.pem --base-url http://h --secrets secrets --out out";
constexpr char kCheck[] = "check out/update.lua --pub keys/rovu_pub.pem --files out --secrets secrets";

class Leftovers : public ::testing::Test {
protected:
    Leftovers() {
        writeWholeFile(path("m.lua"), kManifest);
        writeWholeFile(path("k.img"), "kernel");
        fs::create_directory(path("tmp"));
        EXPECT_EQ(shell("$PACK keygen keys && $PACK secret secrets"), 0);
    }

    std::string path(const std::string& name) const { return scratch_.path + "/" + name; }
    std::string said() const { return readWholeFile(path("said")); }

    int shell(const std::string& line) const {
        return Program({"/bin/sh", "-c", start() + line}, path("said"), path("said")).wait();
    }

    // Most of it takes no room, but time: seconds of hashing for a gigabyte.
    void makeRootfs(uintmax_t size) const {
        writeWholeFile(path("r.img"), "rootfs");
        fs::resize_file(path("r.img"), size);
    }

    // Starts a build, and sends it the signal once it has its hidden folder. Returns what Program::wait() does.
    int endBuildBy(int signal) const {
        Program build({"/bin/sh", "-c", start() + "exec $PACK " + kBuild}, path("said"), path("said"));
        while (entriesOf(path("out")) == 0 && build.isRunning())
            usleep(kPollMicroseconds);
        build.signal(signal);
        return build.wait();
    }

    static size_t entriesOf(const std::string& folder) {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }

private:
    std::string start() const {
        return "cd '" + scratch_.path + "' && export TMPDIR=$PWD/tmp PACK='" + kPack + "' && ";
    }

    const ScratchDir scratch_;
};

TEST_F(Leftovers, AreNoneAfterASignal) {
    makeRootfs(1500000000);
    fs::create_directory(path("out"));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        EXPECT_EQ(endBuildBy(signal), -signal) << said();
        EXPECT_NE(said().find("rovu-pack build: interrupted"), std::string::npos) << said();
        EXPECT_EQ(entriesOf(path("out")), 0U);
    }
}

TEST_F(Leftovers, OfAKilledBuildAreRemovedByTheNextButNotThoseOfARunningOne) {
    makeRootfs(1500000000);
    fs::create_directory(path("out"));
    EXPECT_EQ(endBuildBy(SIGKILL), -SIGKILL);
    EXPECT_EQ(entriesOf(path("out")), 1U);
    makeRootfs(1000000);
    fs::create_directory(path("out/.rovu-pack.locked"));
    EXPECT_EQ(shell(std::string("flock out/.rovu-pack.locked $PACK ") + kBuild), 0) << said();
    EXPECT_EQ(entriesOf(path("out")), 4U);  // two tars, the spec and the locked folder
    EXPECT_TRUE(fs::exists(path("out/.rovu-pack.locked")));
}

TEST_F(Leftovers, OfAKilledCheckAreNoPlainText) {
    makeRootfs(300000000);
    ASSERT_EQ(shell(std::string("$PACK ") + kBuild), 0) << said();
    for (const char* delay : {"0.1", "0.3"})
        shell(std::string("timeout -s KILL ") + delay + " $PACK " + kCheck);
    EXPECT_EQ(entriesOf(path("tmp")), 0U);
    EXPECT_EQ(shell(std::string("$PACK ") + kCheck), 0) << said();
}

TEST_F(Leftovers, OfAKilledRehearsalAreRemovedByTheNext) {
    makeRootfs(1000000);
    ASSERT_EQ(shell(std::string("$PACK ") + kBuild), 0) << said();
    ASSERT_EQ(shell("cd tmp && mkdir rovu-pack.killed rovu-pack.locked rovu-pack.other other && "
                    "touch rovu-pack.killed/device other/file && ln -s ../other rovu-pack.killed/link && "
                    "ln -s other rovu-pack.link && chown nobody rovu-pack.other"),
              0);
    EXPECT_EQ(
        shell("flock tmp/rovu-pack.locked $PACK rehearse out/update.lua --pub keys/rovu_pub.pem --files out "
              "--secrets secrets --device model=RV-20,kernel=1,rootfs=1"),
        0)
        << said();
    EXPECT_FALSE(fs::exists(path("tmp/rovu-pack.killed")));
    for (const char* kept : {"rovu-pack.locked", "rovu-pack.other", "rovu-pack.link", "other/file"})
        EXPECT_TRUE(fs::exists(path("tmp/") + kept)) << kept;
    EXPECT_EQ(entriesOf(path("tmp")), 4U);
}

TEST_F(Leftovers, AreNoneOnAFullDiskWhichIsNamed) {
    makeRootfs(5000000);
    const std::string full =
        "unshare -m sh -c 'mkdir -p out && mount -t tmpfs -o size=2m none FULL && cd . && $PACK ";
    const auto onFull = [&](const std::string& folder, const std::string& command) {
        std::string line = full + command + "; status=$?; find FULL -mindepth 1; exit $status'";
        for (size_t at = line.find("FULL"); at != std::string::npos; at = line.find("FULL"))
            line.replace(at, 4, folder);
        return shell(line);
    };
    EXPECT_EQ(onFull("out", kBuild), 2);
    EXPECT_NE(said().find("out/rootfs.tar: No space left on device; free some there"), std::string::npos)
        << said();
    EXPECT_EQ(said().find("\nout/"), std::string::npos) << said();
    ASSERT_EQ(shell(std::string("$PACK ") + kBuild), 0) << said();
    EXPECT_EQ(onFull("tmp", kCheck), 0) << said();  // which decrypts without writing anything
    EXPECT_EQ(shell(std::string("TMPDIR=/nowhere $PACK ") + kCheck), 0) << said();
}

}  // namespace
