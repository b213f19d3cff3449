// What rovu-pack leaves behind if it is ended in the middle of its work, or if the disk is full: nothing.

#include "pack_shell.h"

#include <csignal>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
constexpr unsigned kPollMicroseconds = 10000;
const std::string kBuild = "$BUILD m.lua --secrets secrets --out out";
const std::string kCheck = "$PACK check out/update.lua --pub keys/rovu_pub.pem --files out --secrets secrets";

class Leftovers : public PackShell {
protected:
    Leftovers() {
        put("m.lua", std::string("{ encr_key_offset = 0,") + (kTwoImages + 1));
        put("k.img", "kernel");
        fs::create_directory(pathOf("tmp"));
        setenv("TMPDIR", pathOf("tmp").c_str(), 1);
        EXPECT_EQ(shell("$PACK keygen keys && $PACK secret secrets"), 0);
    }

    ~Leftovers() override { unsetenv("TMPDIR"); }

    // Most of it takes no room, but time: seconds of hashing for a gigabyte.
    void makeRootfs(uintmax_t size) const {
        writeWholeFile(pathOf("r.img"), "rootfs");
        fs::resize_file(pathOf("r.img"), size);
    }

    // Starts a build, and sends it the signal once it has its hidden folder. Returns what Program::wait() does.
    int endBuildBy(int signal) const {
        Program build({"/bin/sh", "-c", start() + "exec " + kBuild}, pathOf("said"), pathOf("said"));
        while (entriesOf(pathOf("out")) == 0 && build.isRunning())
            usleep(kPollMicroseconds);
        build.signal(signal);
        return build.wait();
    }

    static size_t entriesOf(const std::string& folder) {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }
};

TEST_F(Leftovers, AreNoneAfterASignal) {
    makeRootfs(1500000000);
    fs::create_directory(pathOf("out"));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        EXPECT_EQ(endBuildBy(signal), -signal) << said();
        EXPECT_NE(said().find("rovu-pack build: interrupted"), std::string::npos) << said();
        EXPECT_EQ(entriesOf(pathOf("out")), 0U);
    }
}

TEST_F(Leftovers, OfAKilledBuildAreRemovedByTheNextButNotThoseOfARunningOne) {
    makeRootfs(1500000000);
    fs::create_directory(pathOf("out"));
    EXPECT_EQ(endBuildBy(SIGKILL), -SIGKILL);
    EXPECT_EQ(entriesOf(pathOf("out")), 1U);
    makeRootfs(1000000);
    fs::create_directory(pathOf("out/.rovu-pack.locked"));
    EXPECT_EQ(shell("flock out/.rovu-pack.locked " + kBuild), 0) << said();
    EXPECT_EQ(entriesOf(pathOf("out")), 4U);  // two tars, the spec and the locked folder
    EXPECT_TRUE(exists("out/.rovu-pack.locked"));
}

TEST_F(Leftovers, OfAKilledRehearsalAreRemovedByTheNext) {
    makeRootfs(1000000);
    ASSERT_EQ(shell(kBuild), 0) << said();
    ASSERT_EQ(shell("cd tmp && mkdir rovu-pack.killed rovu-pack.locked rovu-pack.other other && "
                    "touch rovu-pack.killed/device other/file && ln -s ../other rovu-pack.killed/link && "
                    "ln -s other rovu-pack.link && chown nobody rovu-pack.other"),
              0);
    EXPECT_EQ(
        shell("flock tmp/rovu-pack.locked $PACK rehearse out/update.lua --pub keys/rovu_pub.pem --files out "
              "--secrets secrets --device model=RV-20,kernel=1,rootfs=1"),
        0)
        << said();
    EXPECT_FALSE(exists("tmp/rovu-pack.killed"));
    for (const char* kept : {"rovu-pack.locked", "rovu-pack.other", "rovu-pack.link", "other/file"})
        EXPECT_TRUE(exists(std::string("tmp/") + kept)) << kept;
    EXPECT_EQ(entriesOf(pathOf("tmp")), 4U);
}

TEST_F(Leftovers, AreNoneOnAFullDiskWhichIsNamed) {
    makeRootfs(5000000);
    const std::string full =
        "unshare -m sh -c 'mkdir -p out && mount -t tmpfs -o size=2m none FULL && cd . && ";
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
    ASSERT_EQ(shell(kBuild), 0) << said();
    EXPECT_EQ(onFull("tmp", kCheck), 0) << said();  // which decrypts without writing anything
    EXPECT_EQ(shell("TMPDIR=/nowhere " + kCheck), 0) << said();
}

}  // namespace
