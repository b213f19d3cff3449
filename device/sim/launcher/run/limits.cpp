#include "launcher/run/limits.h"

#include "rovu_sim/text_files.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

constexpr uint64_t kMebibyte = 1 << 20;
constexpr int64_t kLookMilliseconds = 50;  // processes can multiply fast

struct Usage {
    uint64_t processes = 0;
    uint64_t bytes = 0;
    uint64_t mostBytes = 0;  // of one process, or of the files in one folder
    std::string most;        // which
};

// Resident and not shared with a file. See proc(5), statm.
uint64_t privateBytes(const std::string& process) {
    std::string text;
    if (readTextFile(process + "/statm", &text) != 0) return 0;
    char* rest = nullptr;
    strtoull(text.c_str(), &rest, 10);
    const uint64_t resident = strtoull(rest, &rest, 10), shared = strtoull(rest, nullptr, 10);
    return (resident - std::min(resident, shared)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t bytesOfFiles(const std::string& folder) {
    struct statvfs info;
    if (statvfs(folder.c_str(), &info) != 0) return 0;
    return (info.f_blocks - info.f_bfree) * info.f_frsize;
}

void count(uint64_t bytes, const std::string& what, Usage* usage) {
    usage->bytes += bytes;
    if (bytes <= usage->mostBytes) return;
    usage->mostBytes = bytes;
    usage->most = what;
}

Usage usageOf(pid_t init) {
    const std::string root = "/proc/" + std::to_string(init) + "/root";
    Usage usage;
    for (const char* folder : {"/dev", "/run"})
        count(bytesOfFiles(root + folder), std::string("files in ") + folder, &usage);
    DIR* processes = opendir((root + "/proc").c_str());
    if (processes == nullptr) return usage;
    for (const dirent* entry = readdir(processes); entry != nullptr; entry = readdir(processes)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        ++usage.processes;
        const std::string process = root + "/proc/" + entry->d_name;
        std::string name;
        if (readTextFile(process + "/comm", &name) != 0) continue;
        count(privateBytes(process), name.substr(0, name.find('\n')), &usage);
    }
    closedir(processes);
    return usage;
}

// The script of a shell, else the program; without folders.
std::string nameOf(pid_t process) {
    std::string line;
    if (readTextFile("/proc/" + std::to_string(process) + "/cmdline", &line) != 0) return "a script";
    const std::string first = line.c_str();
    std::string name = first;
    for (size_t at = first.size() + 1; at < line.size() && name == first; at = line.find('\0', at) + 1) {
        const std::string word = line.c_str() + at;
        if (!word.empty() && word[0] != '-' && word[0] != '+') name = word;
    }
    return name.substr(name.rfind('/') + 1);
}

bool hasEnded(const TimedProcess& timed) {
    pollfd handle = {timed.handle.get(), POLLIN, 0};
    return poll(&handle, 1, 0) > 0;
}

}  // namespace

int64_t nowMilliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void timeCaller(int connection, int64_t skippedMilliseconds, LimitWatch* watch) {
    if (watch->limits.scriptSeconds == 0) return;
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    // Once, however often it calls.
    const auto isPeer = [&peer](const TimedProcess& one) {
        return one.process == peer.pid && !hasEnded(one);
    };
    if (std::any_of(watch->timed.begin(), watch->timed.end(), isPeer)) return;
    TimedProcess timed;
    timed.process = peer.pid;
    timed.handle.reset(static_cast<int>(syscall(SYS_pidfd_open, peer.pid, 0)));
    timed.mostMilliseconds =
        nowMilliseconds() + skippedMilliseconds + static_cast<int64_t>(watch->limits.scriptSeconds) * 1000;
    if (timed.handle.isOpen()) watch->timed.push_back(std::move(timed));
}

std::string lookAtLimits(pid_t init, int64_t skippedMilliseconds, LimitWatch* watch) {
    const int64_t now = nowMilliseconds();
    if (now < watch->nextLook) return "";
    watch->nextLook = now + kLookMilliseconds;
    std::vector<TimedProcess>& timed = watch->timed;
    timed.erase(std::remove_if(timed.begin(), timed.end(), hasEnded), timed.end());
    for (const TimedProcess& one : timed) {
        if (now + skippedMilliseconds > one.mostMilliseconds)
            return nameOf(one.process) + " ran longer than " + std::to_string(watch->limits.scriptSeconds) +
                   " s";
    }
    const Limits& limits = watch->limits;
    if (limits.memoryBytes == 0 && limits.processes == 0) return "";
    const Usage usage = usageOf(init);
    if (limits.processes != 0 && usage.processes > limits.processes)
        return "more than " + std::to_string(limits.processes) + " processes ran at the same time";
    // At two looks in a row: one alone has been far too high as a run ended, for a reason that is not known.
    const bool isBeyond = limits.memoryBytes != 0 && usage.bytes > limits.memoryBytes;
    const bool wasBeyond = std::exchange(watch->isBeyondMemory, isBeyond);
    if (!isBeyond || !wasBeyond) return "";
    return "what ran took more than " + std::to_string(limits.memoryBytes / kMebibyte) + " MiB of memory, " +
           usage.most + " " + std::to_string(usage.mostBytes / kMebibyte) + " MiB";
}

}  // namespace rovusim
