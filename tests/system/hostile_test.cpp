// Scripts that try to leave the simulated device, with something on the host to lose.

#include "support/device.h"
#include "support/web_server.h"
#include "util/descriptor.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

constexpr int kSeconds = 40;          // for a script
constexpr char kCanary[] = "CANARY";  // what nothing inside may print

// $1 is the canary's folder, $2 a process of the host and $3 a port of it. "kept" stands for what was refused.
struct Row {
    const char* name;
    const char* script;
    const char* said;  // by the script, or by the simulator
    Strings options = {};
};
const Strings kPython = {"python"};  // on a device that has it
const Row kRows[] = {
    {"read a file", "cat $1/secret || echo kept", "kept"},
    {"write a file", "echo x >$1/secret || echo kept", "kept"},
    {"read through a link", "ln -s $1/secret /tmp/l; cat /tmp/l || echo kept", "kept"},
    {"root of process 1", "cat /proc/1/root$1/secret || echo kept", "kept"},
    {"working directory of process 1", "ls /proc/1/cwd/../home || echo kept", "kept"},
    {"memory of process 1", "head -c 1 /proc/1/mem || echo kept", "kept"},
    {"write the programs", "echo x >/bin/busybox || echo kept", "kept"},
    {"write the workstation's programs", "echo x >/usr/bin/env || echo kept", "kept", kPython},
    {"home folders", "ls -d /root/* /root/.[a-z]* /home || echo kept", "kept"},
    {"passwords", "cat /etc/shadow", "root::"},
    {"environment", "env; cat /proc/*/environ; echo end", "end"},
    {"processes", "kill -9 $2 || echo kept", "kept"},
    {"everything that runs", "kill -9 -1", ""},
    {"everything by name", "killall -9 rovu-sim bwrap nginx rovu-sim-init sleep; echo end", "end"},
    {"trace a process", "python3 -c 'import ctypes; print(ctypes.CDLL(None).ptrace(16, '$2', 0, 0))'", "-1",
     kPython},
    {"processes of the web server", "cat /proc/[0-9]*/cmdline | grep -c ngin[x]", "0\n"},
    {"files of the web server", "ls /run/rovu-sim/serve || echo kept", "kept"},
    {"a daemon", "setsid sh -c 'sleep 3210; :' $1 & sleep 0.1; echo left", "left"},
    {"a server of the host", "busybox nc -w 1 127.0.0.1 $3 </dev/null || echo kept", "kept"},
    {"sockets of the host", "cat /proc/net/unix; echo end", "end"},
    {"addresses", "ifconfig lo down || echo kept", "kept"},
    {"table of volumes", "echo x >/run/rovu-sim/state/ubi/table || echo kept", "kept"},
    {"link as the table", "ln -sf $1/secret /run/rovu-sim/state/ubi/table || echo kept", "kept"},
    {"bytes of a volume", "echo x >/dev/ubi0_0 || echo kept", "kept"},
    {"link as a volume's node",
     "ln -sf $1/secret /dev/ubi0_0; ubiupdatevol /dev/ubi0_0 /etc/passwd; echo end", "end"},
    {"channel of the tools", "rm -f /run/rovu-sim/channel || echo kept", "kept"},
    {"noise on the channel",
     "python3 -c 'import socket\nfor n in range(200):\n s = socket.socket(1, 5); s.connect(\"/run/rovu-sim/channel\"); "
     "s.send(b\"t\" * n or b\"x\")'; ubinfo -a",
     "Volumes count", kPython},
    {"a tool", "echo x >/usr/local/bin/ubinfo || echo kept", "kept"},
    {"link as the progress file", "ln -s $1/secret /tmp/rovu.progress; ubinfo; echo end", "end"},
    {"FIFO as the progress file", "mkfifo /tmp/rovu.progress; ubinfo; echo end", "end"},
    {"version and variable that move the cursor",
     "printf 'version=\\033[2J\\n' >/tmp/v; ubiupdatevol /dev/ubi0_0 /tmp/v; fw_setenv bootswitcher $(printf '\\033'); echo end",
     "end"},
    {"link as a reference file", "ln -s $1/secret /app0/.ubiRefChk1; echo end", "end"},
    {"FIFO as a reference file", "mkfifo /app0/.ubiRefChk1; echo end", "end"},
    {"link as a folder", "rm -rf /tmp/*; rmdir /tmp && ln -s $1 /tmp || echo kept", "kept"},
    {"another folder", "mv /app0 /app1 || echo kept", "kept"},
    {"FIFO as an image", "mkfifo /tmp/f; ubiupdatevol /dev/ubi0_0 /tmp/f", "not a regular file"},
    {"endless image", "ubiupdatevol /dev/ubi0_0 /dev/zero", "not a regular file"},
    {"long command line", "ubinfo $(head -c 100000 /dev/zero | tr '\\0' x) || echo end", "end"},
    {"remount", "mount -o remount,rw / || echo kept", "kept"},
    {"mount", "mount -t tmpfs none /usr || echo kept", "kept"},
    {"unmount", "umount -l /tmp || echo kept", "kept"},
    {"change the root", "pivot_root /tmp /tmp || echo kept", "kept"},
    {"leave a root",
     "python3 -c 'import os; os.chroot(\"/tmp\"); os.chdir(\"../\" * 20); print(\"kept\", os.path.exists(\"root/.ssh\"))'",
     "kept False", kPython},
    {"namespace of mounts", "unshare -m true || echo kept", "kept"},
    {"user namespace", "unshare -U true || echo kept", "kept"},
    {"disk", "mknod /tmp/disk b 254 0 || echo kept", "kept"},
    {"program with set-user-ID", "cp /bin/busybox /tmp/p && chmod 4755 /tmp/p && echo made", "made"},
    {"kernel settings", "echo 1 >/proc/sys/kernel/sysrq || echo kept", "kept"},
    {"restart", "busybox reboot -f || echo kept", "kept"},
    {"clock", "date -s 2000-01-01; date +%Y", "not permitted"},
    {"name of the host", "hostname x || echo kept", "kept"},
    {"kernel's messages", "dmesg || echo kept", "kept"},
    {"kernel's keys",
     "python3 -c 'import ctypes; print(ctypes.CDLL(None).syscall(250, 0, -3, 0)); print(\"end\")'", "-1\nend",
     kPython},
    {"type into the terminal", "python3 -c 'import fcntl; fcntl.ioctl(0, 0x5412, b\"x\")'",
     "Operation not permitted", kPython},
    {"fill the disk",
     "for f in /tmp /app0 /etc/ssh /var; do cat /dev/zero >$f/x || n=${n}x; done; echo $n $(wc -c </var/x)",
     "xxxx 4194304",
     {"--limit", "disk=4M"}},
    {"fill the memory", "tail /dev/zero", "more than 100 MiB of memory, tail ", {"--limit", "memory=100M"}},
    {"fill the device's folder",
     "cat /dev/zero >/dev/shm/x",
     "MiB of memory, files in /dev ",
     {"--limit", "memory=100M"}},
    {"multiply",
     "for i in $(seq 150); do sleep 99 & done; wait",
     "more than 99 processes",
     {"--limit", "processes=99"}},
    {"run for ever", "while :; do :; done", "s ran longer than 1 s", {"--limit", "time=1"}},
    {"sleep for ever",
     "while :; do sleep 9; done",
     "s ran longer than 20 s",
     {"--limit", "time=20", "--no-wait"}},
};

// A socket of the host that has a name and no file.
zem::Descriptor listenAs(const char* name) {
    zem::Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "%s", name);
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return listener;
}

bool runs(const std::string& word) {
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(process.path() / "cmdline");
        std::string line;
        std::getline(file, line);  // of a process that has just ended: nothing
        if (line.find(word) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

TEST(Hostile, NoScriptReachesTheHost) {
    const ScratchDir home;
    const LoopbackPort port(true);
    const std::string secret = home.path + "/secret", out = home.path + "/out";
    writeWholeFile(secret, kCanary);
    setenv("ROVU_TEST_TOKEN", kCanary, 1);
    const zem::Descriptor listener = listenAs(kCanary);
    const Program witness({"sleep", "1000"});
    rovusim::DeviceOptions withPython;
    withPython.root = rovusim::kHostRoot;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        Device device(row.options == kPython ? withPython : rovusim::DeviceOptions());
        device.put("/tmp/s", row.script);
        writeWholeFile(out, "");
        Strings command = {"timeout",
                           "-k1",
                           std::to_string(kSeconds),
                           ROVU_SIM_PROGRAM,
                           "run",
                           device.directory,
                           "--serve",
                           "http://updates.example=" + device.directory + "/app0"};
        if (row.options != kPython) command.insert(command.end(), row.options.begin(), row.options.end());
        command.insert(command.end(), {"--", "/bin/sh", "-c", "sh /tmp/s \"$@\"", "sh", home.path,
                                       std::to_string(witness.pid()), std::to_string(port.number)});
        const auto start = std::chrono::steady_clock::now();
        Program(command, out, out).wait();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(kSeconds))
            << "it did not end";
        EXPECT_NE(readWholeFile(out).find(row.said), std::string::npos) << readWholeFile(out);
        EXPECT_FALSE(std::filesystem::exists(device.directory + "/root/var/x"));
        // What looks at the device afterwards meets what the script left.
        for (const char* look : {"show", "calls", "restart"}) {
            const Strings words = {"timeout", "-k1", "30", ROVU_SIM_PROGRAM, look, device.directory};
            const int ended = Program(words, out, out).wait();
            EXPECT_TRUE(ended == 0 || ended == 1) << look << " ended with " << ended;
        }
        for (const char* unseen : {kCanary, "\033"})
            EXPECT_EQ(readWholeFile(out).find(unseen), std::string::npos) << readWholeFile(out);
        EXPECT_EQ(readWholeFile(secret), kCanary);
        EXPECT_TRUE(witness.isRunning());
        EXPECT_FALSE(runs(home.path));
        struct stat info = {};
        EXPECT_EQ(stat(device.directory.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 077, 0U);
    }
}
