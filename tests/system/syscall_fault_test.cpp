// The system calls of the program fail, one per run, during a complete update.
//
// A normal run of the tests takes a sample. ROVU_SYSCALL_FAULTS=N/K takes the N-th of K shares of all cases
// instead, and a word such as rename: or rename:4=EIO all cases whose rules start with it.
// `tests/system/every-syscall-fault` takes all of them.

#include "rovu_sim/volume_store.h"
#include "support/crypto.h"
#include "support/reference_file.h"
#include "world.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>

namespace {

constexpr unsigned kFaultShares = 151;   // of about 2200 cases
constexpr unsigned kSignalShares = 503;  // of about 3000 cases
constexpr unsigned kRandomCases = 10000;
constexpr unsigned kRandomShares = 1999;
constexpr double kMostInstructions = 50000;  // after a call

#ifdef __SANITIZE_ADDRESS__
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct CallErrors {
    const char* call;
    Strings errors;  // empty: the call cannot fail with valid arguments
};

// What the kernel can answer to a correct program on a device that is short of memory, space or descriptors,
// whose storage fails, or that gets a signal.
const CallErrors kCallErrors[] = {
    {"access", {"EACCES", "EIO"}},
    {"arch_prctl", {}},
    {"brk", {"ENOMEM"}},
    {"clock_nanosleep", {"EINTR"}},
    {"clone3", {"EAGAIN", "ENOMEM"}},
    {"close", {"EIO", "EINTR"}},
    {"connect", {"ECONNREFUSED", "EINTR", "ENETUNREACH"}},
    {"dup2", {"EMFILE", "EINTR"}},
    {"execve", {"ENOMEM", "EACCES", "EIO"}},
    {"exit_group", {}},
    {"fcntl", {"EMFILE"}},
    {"fstat", {"EIO", "ENOMEM"}},
    {"fsync", {"EIO", "ENOSPC"}},
    {"ftruncate", {"EIO", "EINTR"}},
    {"futex", {}},  // with one thread, only wakes
    {"getpeername", {"ENOTCONN"}},
    {"getpid", {}},
    {"getrandom", {"EINTR"}},
    {"getsockname", {"ENOBUFS"}},
    {"getsockopt", {"ENOMEM"}},
    {"gettid", {}},
    {"ioctl", {"ENOTTY"}},
    {"lseek", {"EIO"}},
    {"madvise", {"ENOMEM"}},
    {"mkdir", {"ENOSPC", "EACCES", "EIO"}},
    {"mmap", {"ENOMEM"}},
    {"mprotect", {"ENOMEM"}},
    {"mremap", {"ENOMEM"}},
    {"munmap", {"ENOMEM"}},
    {"newfstatat", {"EIO", "ENOMEM", "EACCES"}},
    {"openat", {"EIO", "ENOMEM", "EMFILE", "EACCES", "ENOSPC"}},
    {"pipe2", {"EMFILE", "ENFILE"}},
    {"poll", {"EINTR", "ENOMEM"}},
    {"pread64", {"EIO", "EINTR"}},
    {"prlimit64", {}},
    {"read", {"EIO", "EINTR"}},
    {"readlink", {"EIO", "EACCES"}},
    {"recvfrom", {"ECONNRESET", "EINTR"}},
    {"rename", {"EIO", "ENOSPC", "EACCES"}},
    {"rseq", {}},
    {"rt_sigaction", {}},
    {"rt_sigpending", {}},
    {"rt_sigprocmask", {}},
    {"rt_sigreturn", {}},
    {"sendto", {"ECONNRESET", "EINTR"}},
    {"set_robust_list", {}},
    {"set_tid_address", {}},
    {"setsockopt", {"ENOMEM"}},
    {"socket", {"EMFILE", "ENOMEM"}},
    {"socketpair", {"EMFILE", "ENOMEM"}},
    {"statfs", {"EIO"}},
    {"sysinfo", {}},
    {"uname", {}},
    {"unlink", {"EIO", "EACCES"}},
    {"wait4", {"EINTR"}},
    {"write", {"EIO", "ENOSPC", "EINTR"}},
};

// Their number depends on when a transfer's bytes arrive, or on how many seconds it lasts: in a new second the progress
// file is written once more.
const Strings kTimedCalls = {"poll",  "recvfrom", "rt_sigaction", "futex",      "openat",
                             "write", "close",    "rename",       "newfstatat", "fstat"};

struct SyscallCount {
    std::string call;
    unsigned long count = 0;
    unsigned long own = 0;  // of the process's main thread

    bool operator==(const SyscallCount& other) const { return call == other.call && count == other.count; }
};

std::vector<SyscallCount> parseCounts(const std::string& text) {
    std::vector<SyscallCount> counts;
    for (const std::string& line : split(text, '\n')) {
        const Strings words = split(line, ' ');
        counts.push_back({words[0], std::stoul(words[1]), std::stoul(words[2])});
    }
    return counts;
}

// The sample that the environment or the default asks for.
struct Sample {
    unsigned share = 1;
    unsigned shares = 0;
    std::string start;  // of the rules to take, instead of a share
};

Sample chosenSample(unsigned shares) {
    Sample sample;
    sample.shares = shares;
    const char* choice = std::getenv("ROVU_SYSCALL_FAULTS");
    if (choice != nullptr && sscanf(choice, "%u/%u", &sample.share, &sample.shares) != 2)
        sample.start = choice;
    return sample;
}

// By the rule itself, not by its place in a list that differs by the timed calls.
bool isInSample(const Sample& sample, const std::string& rule) {
    if (!sample.start.empty()) return rule.compare(0, sample.start.size(), sample.start) == 0;
    unsigned hash = 2166136261U;  // FNV-1a
    for (const char c : rule)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    return hash % sample.shares == sample.share - 1;
}

const Strings& errorsOf(const std::string& call) {
    static const Strings none;
    for (const CallErrors& row : kCallErrors) {
        if (call == row.call) return row.errors;
    }
    EXPECT_TRUE(kSanitized) << "no row for the system call " << call;
    return none;
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
        const Strings& errors = errorsOf(made.call);
        for (unsigned long number = 1; number <= made.count; ++number) {
            const bool loading = number <= countOf(made.call, atStart);
            if (isOfRuntime(made.call, loading)) continue;
            for (const std::string& error : errors)
                faults.push_back({made.call + ":" + std::to_string(number) + "=" + error, loading});
        }
    }
    return faults;
}

// One update and one device, which is put back to its first state before each run.
class SyscallFaults : public testing::Test {
protected:
    SyscallFaults() {
        args_ = world_.args({});
        std::filesystem::copy(device_.directory, pristine(), std::filesystem::copy_options::recursive);
        active_ = activeSet();
        oldFirst_ = device_.get("/app0/.ubiRefChk1");
        oldSecond_ = device_.get("/app0/.ubiRefChk2");
        const std::string newSet = md5Hex(world_.kernel) + " k1\n" + md5Hex(world_.rootfs) + " k1_root\n";
        merged_ = {referenceFile("0123456789abcdef0123456789abcdef k0\n" + newSet),
                   referenceFile("fedcba9876543210fedcba9876543210 k0\n" + newSet)};
    }

    // Runs the update with one more option of the simulator.
    int run(const std::string& option, const std::string& value) { return run(option, value, args_); }

    int run(const std::string& option, const std::string& value, const Strings& args) {
        std::filesystem::remove_all(device_.directory);
        std::filesystem::copy(pristine(), device_.directory, std::filesystem::copy_options::recursive);
        Strings command = {
            "timeout", "--signal=KILL", kTimeLimit, ROVU_SIM_PROGRAM, "run", device_.directory, "--no-wait",
            option,    value,           "--",       ROVU_PROGRAM};
        command.insert(command.end(), args.begin(), args.end());
        writeWholeFile(out(), "");
        writeWholeFile(err(), "");
        return Program(command, out(), err()).wait();
    }

    std::vector<SyscallCount> count() { return count(args_); }

    std::vector<SyscallCount> count(const Strings& args) {
        const std::string file = scratch_.path + "/counts";
        EXPECT_EQ(run("--count-syscalls", file, args), 0);
        return parseCounts(readWholeFile(file));
    }

    // What no fault may do to a device, however often it comes.
    Strings dangers() const {
        Strings found;
        if (activeSet() != active_) found.push_back("active set changed");
        if (!isSwitched() && device_.bootswitcher() != "0A0A00")
            found.push_back("bootswitcher is " + device_.bootswitcher());
        if (isSwitched() && !isNewSetComplete()) found.push_back("switched to an incomplete set");
        return found;
    }

    // What is wrong after a run with one fault that ended with `status`.
    Strings violations(int status, bool loading = false) const {
        Strings found = dangers();
        const bool started = device_.has("/tmp/rovu.progress");
        const std::string end = "status " + std::to_string(status);
        // The dynamic loader has exit statuses of its own, and crashes if it has no memory at all.
        const bool failedToLoad = loading && !started && status > 1;
        if (status != 0 && status != 1 && !failedToLoad) found.push_back(end);
        if (readWholeFile(err()).find("Sanitizer") != std::string::npos) found.push_back("sanitizer report");
        if (device_.has("/tmp/rovu")) found.push_back("work directory left");
        if (started && device_.get("/tmp/rovu.progress") != progressFile(status == 0 ? "complete" : "error"))
            found.push_back(end + " with state \"" + device_.state() + "\"");
        const std::string side = isSwitched() ? " after the switch" : " without the switch";
        if (isSwitched() != (status == 0)) found.push_back(end + side);
        const std::string first = device_.get("/app0/.ubiRefChk1"), second = device_.get("/app0/.ubiRefChk2");
        const bool right =
            isSwitched() ? isMerged(first) && first == second : first == oldFirst_ && second == oldSecond_;
        if (!right) found.push_back("reference files " + nameOf(first) + "," + nameOf(second) + side);
        return found;
    }

    // What is wrong after a run that got a signal. Without the message the signal came before there was a handler or
    // after the outcome was settled, or a command that was just being started got it, or it was SIGINT, which a run
    // that waits for a command ignores.
    Strings signalViolations(int status) const {
        const bool started = device_.has("/tmp/rovu.progress");
        const bool caught = wasCaught();
        if (!caught && started) return violations(status);
        Strings found = dangers();
        if (device_.has("/tmp/rovu")) found.push_back("work directory left");
        if (caught && status != 0) found.push_back("caught, with status " + std::to_string(status));
        if (caught && device_.state() == "error") found.push_back("caught, with state \"error\"");
        if (!caught && status == 0) found.push_back("nothing happened, with status 0");
        return found;
    }

    bool wasCaught() const { return readWholeFile(out()).find("Caught signal") != std::string::npos; }

    // Reports the violations of one case, each on a line of its own, for the script that adds them up.
    void report(const std::string& rule, const Strings& violations) const {
        for (const std::string& violation : violations) {
            ADD_FAILURE() << rule << "\n" << readWholeFile(out()) << readWholeFile(err());
            printf("VIOLATION %s: %s\n", rule.c_str(), violation.c_str());
            fflush(stdout);  // or each later child process writes it again
        }
    }

    std::string out() const { return scratch_.path + "/out"; }
    std::string err() const { return scratch_.path + "/err"; }

private:
    static constexpr const char* kTimeLimit = "120";  // seconds

    std::string pristine() const { return scratch_.path + "/pristine"; }

    Strings activeSet() const {
        return {device_.volume("k0"), device_.volume("k0_root"), device_.volume("k0_data")};
    }

    bool isSwitched() const { return device_.bootswitcher() == "0A0A01"; }

    bool isNewSetComplete() const {
        for (const char* name : {"k1", "k1_root", "k1_data"}) {
            rovusim::Volume volume;
            if (rovusim::findVolume(device_.directory, name, &volume) != 0 || volume.updating) return false;
        }
        return device_.volume("k1") == world_.kernel && device_.volume("k1_root") == world_.rootfs &&
               device_.volume("k1_data") == device_.volume("k0_data");
    }

    bool isMerged(const std::string& reference) const {
        return std::find(merged_.begin(), merged_.end(), reference) != merged_.end();
    }

    std::string nameOf(const std::string& reference) const {
        if (reference.empty()) return "none";
        if (isMerged(reference)) return "new";
        return reference == oldFirst_ || reference == oldSecond_ ? "old" : "damaged";
    }

    const ScratchDir scratch_;
    World world_;
    const Device& device_ = world_.device;
    Strings args_, active_;
    std::string oldFirst_, oldSecond_;
    Strings merged_;  // with the first old file and, should that not be readable, with the second
};

TEST_F(SyscallFaults, MeetTheSameCallsInEachRun) {
    if (kSanitized) GTEST_SKIP() << "the sanitizers' runtime makes calls of its own at its own times";
    const auto steady = [this] {
        std::vector<SyscallCount> counts = count();
        const auto timed = [](const SyscallCount& made) {
            return std::find(kTimedCalls.begin(), kTimedCalls.end(), made.call) != kTimedCalls.end();
        };
        counts.erase(std::remove_if(counts.begin(), counts.end(), timed), counts.end());
        return counts;
    };
    EXPECT_TRUE(steady() == steady());
}

TEST_F(SyscallFaults, LeaveADeviceThatBootsAsBeforeOrAsUpdated) {
    const Sample sample = chosenSample(kFaultShares);
    const std::vector<SyscallCount> atStart = count({"-h"});
    const std::vector<Fault> faults = allFaults(count(), atStart);
    EXPECT_EQ(violations(0), Strings());
    ASSERT_GE(faults.size(), 1000U);
    unsigned runs = 0;
    for (const Fault& fault : faults) {
        if (!isInSample(sample, fault.rule)) continue;
        ++runs;
        const int status = run("--fail-syscall", fault.rule);
        report(fault.rule, violations(status, fault.loading));
    }
    printf("%u runs of %zu\n", runs, faults.size());
}

TEST_F(SyscallFaults, ThatLastNeverSwitchToAnIncompleteSet) {
    for (const char* rule : {"write:30+=ENOSPC", "openat:40+=EMFILE", "mmap:150+=ENOMEM", "rename:16+=EIO",
                             "fsync:2+=EIO", "clone3:30+=EAGAIN", "read:40+=EIO"}) {
        SCOPED_TRACE(rule);
        run("--fail-syscall", rule);
        EXPECT_EQ(dangers(), Strings());
    }
}

TEST_F(SyscallFaults, GiveWayToASignalBeforeTheCall) {
    for (const char* rule :
         {"clone3:20=TERM", "fsync:1=INT", "rename:5=TERM", "rename:5/1=TERM", "fsync:1/900=INT"}) {
        SCOPED_TRACE(rule);
        EXPECT_EQ(run("--kill-at", rule), 0);
        EXPECT_NE(readWholeFile(out()).find("Caught signal"), std::string::npos);
        EXPECT_EQ(dangers(), Strings());
    }
}

TEST_F(SyscallFaults, LeaveNoTraceIfASignalComesFirst) {
    const Sample sample = chosenSample(kSignalShares);
    unsigned runs = 0;
    unsigned cases = 0;
    unsigned caught = 0;
    for (const SyscallCount& made : count()) {
        if (made.call == "exit_group" || made.call == "rt_sigreturn") continue;
        for (unsigned long i = 1; i <= made.own; ++i) {
            for (const char* signal : {"TERM", "INT"}) {
                const std::string rule = made.call + ":" + std::to_string(i) + "=" + signal;
                ++cases;
                if (!isInSample(sample, rule)) continue;
                ++runs;
                report(rule, signalViolations(run("--kill-at", rule)));
                if (wasCaught()) ++caught;
            }
        }
    }
    printf("%u runs of %u, %u caught\n", runs, cases, caught);
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
    const Sample sample = chosenSample(kRandomShares);
    std::vector<SyscallCount> counts = count();
    counts.erase(std::remove_if(counts.begin(), counts.end(),
                                [](const SyscallCount& made) { return made.call == "exit_group"; }),
                 counts.end());
    unsigned runs = 0;
    unsigned caught = 0;
    for (unsigned seed = 0; seed < kRandomCases; ++seed) {
        const std::string rule = randomRule(counts, seed);
        if (!isInSample(sample, rule)) continue;
        ++runs;
        report(rule, signalViolations(run("--kill-at", rule)));
        if (wasCaught()) ++caught;
    }
    printf("%u runs of %u, %u caught\n", runs, kRandomCases, caught);
}

TEST_F(SyscallFaults, AreRefusedIfTheirRuleIsWrong) {
    struct Row {
        const char *option, *rule;
    };
    const Row rows[] = {{"--fail-syscall", "frobnicate:1=EIO"},
                        {"--fail-syscall", "read:1=EFOO"},
                        {"--fail-syscall", "read:0=EIO"},
                        {"--fail-syscall", "read=EIO"},
                        {"--fail-syscall", "read:1"},
                        {"--fail-syscall", "exit_group:1=EIO"},
                        {"--kill-at", "read:1=EIO"},
                        {"--kill-at", "read:1/0=TERM"},
                        {"--kill-at", "read:1/x=TERM"},
                        {"--kill-at", "read:x=TERM"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rule);
        EXPECT_EQ(run(row.option, row.rule), 2);
        EXPECT_NE(readWholeFile(err()).find(std::string(row.option) + " " + row.rule + ": "),
                  std::string::npos);
    }
}

}  // namespace
