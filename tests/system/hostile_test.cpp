// Scripts that try to leave the simulated device, with something on the host to lose.

#include "support/device.h"
#include "support/web_server.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

constexpr char kCanary[] = "CANARY";  // what nothing inside may print

// $1 is the canary's folder and $2 a process of the host. "kept" stands for what was refused.
struct Row {
    const char* name;
    const char* script;
    const char* printed;
};
const Row kRows[] = {
    {"read a file", "cat $1/secret || echo kept", "kept"},
    {"write a file", "echo x >$1/secret || echo kept", "kept"},
    {"write the host's programs", "echo x >/usr/bin/rovu-hostile || echo kept", "kept"},
    {"home folders", "ls -d /root/* /root/.[a-z]* /home || echo kept", "kept"},
    {"passwords", "cat /etc/shadow", "root::"},
    {"environment", "env; cat /proc/*/environ; echo end", "end"},
    {"processes", "kill -9 $2 || echo kept", "kept"},
    {"everything that runs", "kill -9 -1", ""},
    {"processes of the web server", "cat /proc/[0-9]*/cmdline | grep -c ngin[x]", "0\n"},
    {"files of the web server", "ls /run/rovu-sim/serve || echo kept", "kept"},
    {"a daemon", "setsid sleep 3210 & sleep 0.1; echo left", "left"},
    {"network", "busybox nc -w 1 127.0.0.1 $3 </dev/null || echo kept", "kept"},
    {"table of volumes", "echo x >/run/rovu-sim/state/ubi/table || echo kept", "kept"},
    {"link as the table", "ln -sf $1/secret /run/rovu-sim/state/ubi/table || echo kept", "kept"},
    {"bytes of a volume", "echo x >/dev/ubi0_0 || echo kept", "kept"},
    {"channel of the tools", "rm -f /run/rovu-sim/channel || echo kept", "kept"},
    {"a tool", "echo x >/usr/local/bin/ubinfo || echo kept", "kept"},
    {"link as the progress file", "ln -s $1/secret /tmp/rovu.progress; ubinfo; echo end", "end"},
    {"FIFO as the progress file", "mkfifo /tmp/rovu.progress; ubinfo; echo end", "end"},
    {"FIFO as an image", "mkfifo /tmp/f; ubiupdatevol /dev/ubi0_0 /tmp/f", "not a regular file"},
    {"endless image", "ubiupdatevol /dev/ubi0_0 /dev/zero", "not a regular file"},
    {"long command line", "ubinfo $(head -c 100000 /dev/zero | tr '\\0' x) || echo end", "end"},
    {"remount", "mount -o remount,rw / || echo kept", "kept"},
    {"mount", "mount -t tmpfs none /usr || echo kept", "kept"},
    {"namespace of mounts", "unshare -m true || echo kept", "kept"},
    {"disk", "mknod /tmp/disk b 254 0 || echo kept", "kept"},
    {"program with set-user-ID", "cp /bin/true /tmp/p && chmod 4755 /tmp/p && echo made", "made"},
    {"kernel settings", "echo 1 >/proc/sys/kernel/sysrq || echo kept", "kept"},
    {"kernel's restart", "echo b >/proc/sysrq-trigger || echo kept", "kept"},
};

bool runs(const std::string& word) {
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(process.path() / "cmdline");
        const std::string line{std::istreambuf_iterator<char>(file), {}};
        if (line.find(word) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

TEST(Hostile, NoScriptReachesTheHost) {
    const ScratchDir home;
    const LoopbackPort port(true);
    const std::string secret = home.path + "/secret";
    writeWholeFile(secret, kCanary);
    setenv("ROVU_TEST_TOKEN", kCanary, 1);
    const Program witness({"sleep", "1000"});
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        Device device;
        device.put("/tmp/s", row.script);
        const std::string out = home.path + "/out";
        writeWholeFile(out, "");
        const Strings command = {"timeout",
                                 "-k1",
                                 "20",
                                 ROVU_SIM_PROGRAM,
                                 "run",
                                 device.directory,
                                 "--serve",
                                 "http://updates.example=" + device.directory + "/app0",
                                 "--",
                                 "/bin/sh",
                                 "/tmp/s",
                                 home.path,
                                 std::to_string(witness.pid()),
                                 std::to_string(port.number)};
        const int status = Program(command, out, out).wait();
        EXPECT_NE(status, 124) << "it did not end";
        EXPECT_NE(readWholeFile(out).find(row.printed), std::string::npos) << readWholeFile(out);
        EXPECT_EQ(readWholeFile(out).find(kCanary), std::string::npos) << readWholeFile(out);
        EXPECT_EQ(readWholeFile(secret), kCanary);
        EXPECT_EQ(readWholeFile(device.directory + "/calls.log").find(kCanary), std::string::npos);
        EXPECT_TRUE(witness.isRunning());
        EXPECT_FALSE(runs("3210"));
        struct stat info = {};
        EXPECT_EQ(stat(device.directory.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 077, 0U);
    }
}
