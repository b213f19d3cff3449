#include "launcher/syscalls/supervisor.h"

#include "launcher/host_program.h"
#include "launcher/tools/tool_call.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/volume_store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr long kNanosecondsPerSecond = 1000000000L;
constexpr long kNanosecondsPerMillisecond = 1000000L;
constexpr int kRestartCall = 513;  // the kernel's ERESTARTNOINTR, which its headers do not export

size_t wordsFor(size_t reported, size_t known) {
    return (std::max(reported, known) + sizeof(uint64_t) - 1) / sizeof(uint64_t);
}

void* pointerTo(uint64_t address) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}

template <class Answer>
bool write(const seccomp_notif& call, uint64_t address, const Answer& bytes) {
    const iovec local = {const_cast<Answer*>(&bytes), sizeof bytes};
    const iovec remote = {pointerTo(address), sizeof bytes};
    return process_vm_writev(static_cast<pid_t>(call.pid), &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(sizeof bytes);
}

template <size_t N>
void setField(char (&field)[N], const std::string& text) {
    const size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
}

bool isPending(const Supervisor& supervisor, const seccomp_notif& call) {
    uint64_t id = call.id;
    return ioctl(supervisor.listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

utsname deviceName(const std::string& release) {
    utsname name = {};
    setField(name.sysname, "Linux");
    setField(name.nodename, "device");
    setField(name.release, release);
    setField(name.version, "#1");
    setField(name.machine, "mips");
    setField(name.domainname, "(none)");
    return name;
}

void answerUname(const Supervisor& supervisor, const seccomp_notif& call, seccomp_notif_resp* answer) {
    answer->error = write(call, call.data.args[0], deviceName(supervisor.kernelRelease)) ? 0 : -EFAULT;
}

bool readTime(const seccomp_notif& call, uint64_t address, timespec* time) {
    const iovec local = {time, sizeof *time};
    const iovec remote = {pointerTo(address), sizeof *time};
    return process_vm_readv(static_cast<pid_t>(call.pid), &local, 1, &remote, 1, 0) ==
           static_cast<ssize_t>(sizeof *time);
}

// How long the caller asks to wait; false if its arguments cannot be read.
bool waitOf(const seccomp_notif& call, timespec* wait) {
    if (call.data.nr == SYS_nanosleep) return readTime(call, call.data.args[0], wait);
    if (!readTime(call, call.data.args[2], wait)) return false;
    if ((call.data.args[1] & TIMER_ABSTIME) == 0) return true;
    timespec now;
    if (clock_gettime(static_cast<clockid_t>(call.data.args[0]), &now) != 0) return false;
    wait->tv_sec -= now.tv_sec;
    wait->tv_nsec -= now.tv_nsec;
    if (wait->tv_nsec < 0) {
        wait->tv_nsec += kNanosecondsPerSecond;
        wait->tv_sec -= 1;
    }
    return true;
}

// To the millisecond: a wait until a point in time is always a little shorter than the one requested.
std::string secondsText(const timespec& wait) {
    const long long milliseconds =
        wait.tv_sec * 1000LL + (wait.tv_nsec + kNanosecondsPerMillisecond / 2) / kNanosecondsPerMillisecond;
    std::string text = std::to_string(milliseconds / 1000);
    if (milliseconds % 1000 == 0) return text;
    std::string fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return text + "." + fraction;
}

void answerWait(Supervisor* supervisor, const seccomp_notif& call, seccomp_notif_resp* answer) {
    timespec wait = {};
    // Programs poll with short waits; skipping those would make them spin. The kernel rejects bad arguments.
    const bool known = waitOf(call, &wait) && isPending(*supervisor, call);
    if (!known || wait.tv_sec < 1 || wait.tv_nsec < 0 || wait.tv_nsec >= kNanosecondsPerSecond) {
        answer->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        return;
    }
    supervisor->skippedMilliseconds += wait.tv_sec * 1000LL + wait.tv_nsec / kNanosecondsPerMillisecond;
    if (int rc = recordWait(supervisor->stateDir, supervisor->tmp, secondsText(wait)); rc != 0)
        cannot("record", "a wait", rc);
}

template <class Numbers>
bool isOneOf(const seccomp_notif& call, const Numbers& numbers) {
    return std::find(std::begin(numbers), std::end(numbers), call.data.nr) != std::end(numbers);
}

constexpr mode_t kNode = S_IFCHR | 0600;

// The first bytes of the caller's path: more than a node's name has.
std::string readPath(const seccomp_notif& call, uint64_t address) {
    char path[32] = {};
    // Byte by byte up to a page's end: the next page may not be there.
    const size_t left = 4096 - (address & 4095);
    const iovec local = {path, sizeof path - 1};
    const iovec remote[] = {{pointerTo(address), std::min(left, sizeof path - 1)}};
    if (process_vm_readv(static_cast<pid_t>(call.pid), &local, 1, remote, 1, 0) < 0) return "";
    return path;
}

// Answers a call that tells of the node of a volume that is there; false: the kernel must carry the call out.
bool answerVolumeStat(const std::string& stateDir, const seccomp_notif& call, seccomp_notif_resp* answer) {
    const bool pathIsFirst = isOneOf(call, kPathStatCalls);
    if (!pathIsFirst && !isOneOf(call, kStatCalls)) return false;
    const unsigned path = pathIsFirst ? 0 : 1;
    uint32_t id = 0;
    Volume volume;
    if (!parseVolumeNode(readPath(call, call.data.args[path]), &id)) return false;
    if (findVolumeById(stateDir, id, &volume) != 0) return false;
    struct stat info;
    if (stat(volumePath(stateDir, id).c_str(), &info) != 0) return false;
    const dev_t number = makedev(kUbiMajor, id + 1);
    bool isWritten = false;
    if (call.data.nr != SYS_statx) {
        info.st_mode = kNode;
        info.st_rdev = number;
        info.st_size = 0;
        isWritten = write(call, call.data.args[path + 1], info);
    } else {
        struct statx extended = {};
        extended.stx_mask = STATX_BASIC_STATS;
        extended.stx_mode = kNode;
        extended.stx_nlink = 1;
        extended.stx_blksize = static_cast<__u32>(info.st_blksize);
        extended.stx_ino = info.st_ino;
        extended.stx_rdev_major = major(number);
        extended.stx_rdev_minor = minor(number);
        isWritten = write(call, call.data.args[4], extended);
    }
    answer->error = isWritten ? 0 : -EFAULT;
    return true;
}

// What the device does with a call that no rule names.
void answerAsDevice(Supervisor* supervisor, const seccomp_notif& call, seccomp_notif_resp* answer) {
    const bool waits = call.data.nr == SYS_nanosleep || call.data.nr == SYS_clock_nanosleep;
    if (call.data.nr == SYS_uname) {
        answerUname(*supervisor, call, answer);
    } else if (isOneOf(call, kOwnerCalls) || answerVolumeStat(supervisor->stateDir, call, answer)) {
        return;  // with success
    } else if (waits && supervisor->skipWaits) {
        answerWait(supervisor, call, answer);
    } else {
        answer->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
}

// A close that fails releases the file nevertheless. Left open, the end of a pipe would keep its reader
// waiting.
void releaseFile(const Supervisor& supervisor, const seccomp_notif& call) {
    seccomp_notif_addfd replacement = {};
    replacement.id = call.id;
    replacement.flags = SECCOMP_ADDFD_FLAG_SETFD;
    replacement.srcfd = static_cast<__u32>(supervisor.null.get());
    replacement.newfd = static_cast<__u32>(call.data.args[0]);
    replacement.newfd_flags = O_CLOEXEC;
    ioctl(supervisor.listener, SECCOMP_IOCTL_NOTIF_ADDFD, &replacement);
}

// Answers as the kernel does if the call fails; false if it cannot fail.
bool failCall(const Supervisor& supervisor, const seccomp_notif& call, seccomp_notif_resp* answer) {
    if (call.data.nr == SYS_close) releaseFile(supervisor, call);
    if (call.data.nr != SYS_brk) {
        answer->error = -supervisor.program.error();
        return true;
    }
    // brk returns no errno value: a result below the requested address means failure. Address 0 is a query.
    return call.data.args[0] != 0;
}

// Counts a call of the program; true if a rule answers it.
bool answerByRule(Supervisor* supervisor, const seccomp_notif& call, seccomp_notif_resp* answer) {
    switch (supervisor->program.take(call)) {
    case ProgramCalls::Verdict::eCarryOut:
        return false;
    case ProgramCalls::Verdict::eFail:
        return failCall(*supervisor, call, answer);
    case ProgramCalls::Verdict::eRestart:
        answer->error = -kRestartCall;
        return true;
    }
    return false;
}

}  // namespace

const std::vector<int> kOwnerCalls = {
#ifdef SYS_chown
    SYS_chown,  SYS_lchown,
#endif
    SYS_fchown, SYS_fchownat, SYS_setgroups,
};

const int kStatCalls[2] = {SYS_newfstatat, SYS_statx};

const std::vector<int> kPathStatCalls = {
#ifdef SYS_stat
    SYS_stat,
    SYS_lstat,
#endif
};

int startSupervisor(int listener, const std::string& stateDir, const std::string& kernelRelease,
                    Supervisor* supervisor) {
    seccomp_notif_sizes sizes = {};
    if (syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes) != 0)
        return cannot("watch", "system calls", errno);
    supervisor->null.reset(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!supervisor->null.isOpen()) return cannot("open", "/dev/null", errno);
    supervisor->listener = listener;
    supervisor->stateDir = stateDir;
    supervisor->kernelRelease = kernelRelease;
    supervisor->request.resize(wordsFor(sizes.seccomp_notif, sizeof(seccomp_notif)));
    supervisor->response.resize(wordsFor(sizes.seccomp_notif_resp, sizeof(seccomp_notif_resp)));
    return 0;
}

void answerSyscall(Supervisor* supervisor) {
    std::fill(supervisor->request.begin(), supervisor->request.end(), 0);
    std::fill(supervisor->response.begin(), supervisor->response.end(), 0);
    auto* call = reinterpret_cast<seccomp_notif*>(supervisor->request.data());
    auto* answer = reinterpret_cast<seccomp_notif_resp*>(supervisor->response.data());
    // ENOENT: the caller has died meanwhile.
    if (ioctl(supervisor->listener, SECCOMP_IOCTL_NOTIF_RECV, call) != 0) return;
    answer->id = call->id;
    const bool watched = supervisor->watchesProgram && supervisor->program.isOfProgram(*call);
    if (!isPending(*supervisor, *call)) return;
    if (!watched || !answerByRule(supervisor, *call, answer)) answerAsDevice(supervisor, *call, answer);
    ioctl(supervisor->listener, SECCOMP_IOCTL_NOTIF_SEND, answer);
}

}  // namespace rovusim
