// The system calls of the program fail, one per run, during a complete update.
//
// A normal run of the tests takes a sample. ROVU_SYSCALL_FAULTS=N/K takes the N-th of K shares of all cases
// instead, and a word such as rename: or rename:4=EIO all cases whose rules start with it.
// `tests/system/every-syscall-fault` takes all of them.

#include "update_faults.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

constexpr char kSampleVariable[] = "ROVU_SYSCALL_FAULTS";
constexpr unsigned kFaultShares = 151;   // of about 2200 cases
constexpr unsigned kSignalShares = 503;  // of about 3000 cases
constexpr unsigned kRandomCases = 10000;
constexpr unsigned kRandomShares = 1999;
constexpr double kMostInstructions = 50000;  // after a call

struct CallErrors {
    Strings errors, calls;
};

// What the kernel can answer to a correct program on a device that is short of memory, space or descriptors,
// whose storage fails, or that gets a signal.
const CallErrors kCallErrors[] = {
    {{"EACCES", "EIO"}, {"access"}},
    {{"ENOMEM"}, {"brk", "getsockopt", "madvise", "mmap", "mprotect", "mremap", "munmap", "setsockopt"}},
    {{"EINTR"}, {"clock_nanosleep", "getrandom", "wait4"}},
    {{"EAGAIN", "ENOMEM"}, {"clone3"}},
    {{"EIO", "EINTR"}, {"close", "ftruncate", "pread64", "read"}},
    {{"ECONNREFUSED", "EINTR", "ENETUNREACH"}, {"connect"}},
    {{"EMFILE", "EINTR"}, {"dup2"}},
    {{"ENOMEM", "EACCES", "EIO"}, {"execve"}},
    {{"EMFILE"}, {"fcntl"}},
    {{"EIO", "ENOMEM"}, {"fstat"}},
    {{"EIO", "ENOSPC"}, {"fsync"}},
    {{"ENOTCONN"}, {"getpeername"}},
    {{"ENOBUFS"}, {"getsockname"}},
    {{"ENOTTY"}, {"ioctl"}},
    {{"EIO"}, {"lseek", "statfs"}},
    {{"ENOSPC", "EACCES", "EIO"}, {"mkdir"}},
    {{"EIO", "ENOMEM", "EACCES"}, {"newfstatat"}},
    {{"EIO", "ENOMEM", "EMFILE", "EACCES", "ENOSPC"}, {"openat"}},
    {{"EMFILE", "ENFILE"}, {"pipe2"}},
    {{"EINTR", "ENOMEM"}, {"poll"}},
    {{"EIO", "EACCES"}, {"readlink", "unlink"}},
    {{"ECONNRESET", "EINTR"}, {"recvfrom", "sendto"}},
    {{"EIO", "ENOSPC", "EACCES"}, {"rename"}},
    {{"EMFILE", "ENOMEM"}, {"socket", "socketpair"}},
    {{"EIO", "ENOSPC", "EINTR"}, {"write"}},
};

// With valid arguments, and with one thread.
const Strings kCannotFail = {"arch_prctl",      "exit_group",     "futex",        "getpid",
                             "gettid",          "prlimit64",      "rseq",         "rt_sigaction",
                             "rt_sigpending",   "rt_sigprocmask", "rt_sigreturn", "set_robust_list",
                             "set_tid_address", "sysinfo",        "uname"};

struct SyscallCount {
    std::string call;
    unsigned long count = 0;
    unsigned long own = 0;  // of the process's main thread
};

std::vector<SyscallCount> parseCounts(const std::string& text) {
    std::vector<SyscallCount> counts;
    for (const std::string& line : split(text, '\n')) {
        const Strings words = split(line, ' ');
        counts.push_back({words[0], std::stoul(words[1]), std::stoul(words[2])});
    }
    return counts;
}

bool has(const Strings& calls, const std::string& call) {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

Strings errorsOf(const std::string& call) {
    for (const CallErrors& row : kCallErrors) {
        if (has(row.calls, call)) return row.errors;
    }
    EXPECT_TRUE(kSanitized || has(kCannotFail, call)) << "no row for the system call " << call;
    return {};
}

struct Fault {
    std::string rule;
    bool loading = false;  // among the first calls of the process, those of the dynamic loader
};

unsigned long countOf(const std::string& call, const std::vector<SyscallCount>& counts) {
    for (const SyscallCount& made : counts) {
        if (made.call == call) return made.count;
    }
    return 0;
}

// The sanitizers' runtime ends the program if its memory cannot be mapped or a call of its start fails.
bool isOfRuntime(const std::string& call, bool loading) {
    return kSanitized && (loading || call == "mmap" || call == "munmap" || call == "mprotect");
}

// A rule for each call and each of its errors. `atStart` are the calls of a program that does nothing.
std::vector<Fault> allFaults(const std::vector<SyscallCount>& counts,
                             const std::vector<SyscallCount>& atStart) {
    std::vector<Fault> faults;
    for (const SyscallCount& made : counts) {
        const Strings errors = errorsOf(made.call);
        for (unsigned long number = 1; number <= made.count; ++number) {
            const bool loading = number <= countOf(made.call, atStart);
            if (isOfRuntime(made.call, loading)) continue;
            for (const std::string& error : errors)
                faults.push_back({made.call + ":" + std::to_string(number) + "=" + error, loading});
        }
    }
    return faults;
}

class SyscallFaults : public UpdateFaults {
protected:
    // Runs the update with one more option of the simulator.
    int run(const std::string& option, const std::string& value) {
        return UpdateFaults::run({option, value}, {}, args());
    }

    std::vector<SyscallCount> count(const Strings& args) {
        const std::string file = scratch() + "/counts";
        EXPECT_EQ(UpdateFaults::run({"--count-syscalls", file}, {}, args), 0);
        return parseCounts(readWholeFile(file));
    }

    // Runs the update with each fault of the sample, and reports what is wrong afterwards.
    void runSample(unsigned shares, const std::string& option, const std::vector<Fault>& faults) {
        const Sample sample(kSampleVariable, shares);
        unsigned runs = 0, caught = 0;
        for (const Fault& fault : faults) {
            if (!sample.has(fault.rule)) continue;
            const int status = run(option, fault.rule);
            const bool isSignal = option == "--kill-at";
            report(fault.rule, isSignal ? signalViolations(status) : violations(status, fault.loading));
            ++runs;
            if (wasCaught()) ++caught;
        }
        printf("%u runs of %zu, %u caught\n", runs, faults.size(), caught);
    }

    // What is wrong after a run that got a signal. Without the message the signal came before there was a handler or
    // after the outcome was settled, or a command that was just being started got it, or it was SIGINT, which a run
    // that waits for a command ignores.
    Strings signalViolations(int status) const {
        const bool caught = wasCaught();
        if (!caught && hasStarted()) return violations(status);
        Strings found = dangers();
        if (device().has("/tmp/rovu")) found.push_back("work directory left");
        if (caught && status != 0) found.push_back("caught, with status " + std::to_string(status));
        if (caught && device().state() == "error") found.push_back("caught, with state \"error\"");
        if (!caught && status == 0) found.push_back("nothing happened, with status 0");
        return found;
    }

    bool wasCaught() const { return outContains("Caught signal"); }
};

TEST_F(SyscallFaults, LeaveADeviceThatBootsAsBeforeOrAsUpdated) {
    const std::vector<SyscallCount> atStart = count({"-h"});
    const std::vector<Fault> faults = allFaults(count(args()), atStart);
    EXPECT_EQ(violations(0), Strings());
    ASSERT_GE(faults.size(), 1000U);
    runSample(kFaultShares, "--fail-syscall", faults);
}

TEST_F(SyscallFaults, ThatLastNeverSwitchToAnIncompleteSet) {
    for (const char* rule : {"write:30+=ENOSPC", "openat:40+=EMFILE", "mmap:150+=ENOMEM", "rename:16+=EIO",
                             "fsync:2+=EIO", "clone3:30+=EAGAIN", "read:40+=EIO"}) {
        SCOPED_TRACE(rule);
        run("--fail-syscall", rule);
        EXPECT_EQ(dangers(), Strings());
    }
}

// The samples below would not notice if no signal came.
TEST_F(SyscallFaults, GiveWayToASignalBeforeTheCall) {
    for (const char* rule :
         {"clone3:20=TERM", "fsync:1=INT", "rename:5=TERM", "rename:5/1=TERM", "fsync:1/900=INT"}) {
        SCOPED_TRACE(rule);
        EXPECT_EQ(run("--kill-at", rule), 0);
        EXPECT_TRUE(wasCaught());
        EXPECT_EQ(dangers(), Strings());
    }
}

TEST_F(SyscallFaults, LeaveNoTraceIfASignalComesFirst) {
    std::vector<Fault> signals;
    for (const SyscallCount& made : count(args())) {
        if (made.call == "exit_group" || made.call == "rt_sigreturn") continue;
        for (unsigned long i = 1; i <= made.own; ++i) {
            for (const char* signal : {"TERM", "INT"})
                signals.push_back({made.call + ":" + std::to_string(i) + "=" + signal});
        }
    }
    runSample(kSignalShares, "--kill-at", signals);
}

// An instruction at a random distance, of any magnitude, from a random call; the same ones each time.
std::string randomRule(const std::vector<SyscallCount>& counts, unsigned seed) {
    std::minstd_rand random(seed + 1);
    random.discard(3);  // the first numbers of near seeds are near each other
    unsigned long calls = 0;
    for (const SyscallCount& made : counts)
        calls += made.own;
    unsigned long call = random() % calls;
    auto made = counts.begin();
    for (; call >= made->own; ++made)
        call -= made->own;
    const double magnitude = static_cast<double>(random() % 1000) / 1000.0;
    const auto instructions = static_cast<unsigned>(std::pow(kMostInstructions, magnitude));
    const char* signal = random() % 2 == 0 ? "TERM" : "INT";
    return made->call + ":" + std::to_string(call + 1) + "/" + std::to_string(instructions) + "=" + signal;
}

TEST_F(SyscallFaults, LeaveNoTraceIfASignalComesAtAnyInstruction) {
    std::vector<SyscallCount> counts = count(args());
    counts.erase(std::remove_if(counts.begin(), counts.end(),
                                [](const SyscallCount& made) { return made.call == "exit_group"; }),
                 counts.end());
    std::vector<Fault> signals;
    for (unsigned seed = 0; seed < kRandomCases; ++seed)
        signals.push_back({randomRule(counts, seed)});
    runSample(kRandomShares, "--kill-at", signals);
}

}  // namespace
