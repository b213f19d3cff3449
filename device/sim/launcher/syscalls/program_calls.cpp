#include "launcher/syscalls/program_calls.h"

#include "launcher/host_program.h"
#include "launcher/syscalls/syscall_filter.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace rovusim {
namespace {

long trace(int request, pid_t thread, long data) {
    return ptrace(static_cast<__ptrace_request>(request), thread, nullptr, data);
}

// Waits for the next stop and returns the signal to deliver there, or 0; -1 once the thread has ended.
int nextStop(pid_t thread) {
    int status = 0;
    if (waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) return -1;
    const int signal = WSTOPSIG(status);
    return signal == SIGTRAP || status >> 16 != 0 ? 0 : signal;
}

[[noreturn]] void step(pid_t thread, unsigned long instructions, int signal) {
    int deliver = nextStop(thread);
    for (unsigned long i = 0; i < instructions && deliver >= 0; ++i) {
        if (trace(PTRACE_SINGLESTEP, thread, deliver) != 0) _exit(EXIT_FAILURE);
        deliver = nextStop(thread);
    }
    if (deliver < 0) _exit(EXIT_SUCCESS);
    kill(thread, signal);
    trace(PTRACE_DETACH, thread, deliver);
    _exit(EXIT_SUCCESS);
}

// Lets a thread that is inside a system call finish it, executes so many more instructions one by one, and then sends the
// thread's process the signal. A process of its own does it with ptrace(2), since each step would otherwise wake the
// launcher; it ends by itself, and if the thread ends first there is no signal. Returns its id, which the caller waits
// for; or -1 after a message.
pid_t startStepper(pid_t thread, unsigned long instructions, int signal) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        cannot("trace", "the program", errno);
        return -1;
    }
    zem::Descriptor readEnd(ends[0]);
    zem::Descriptor writeEnd(ends[1]);
    const pid_t stepper = fork();
    if (stepper == 0) {
        // The thread is in its system call, so it stops before its next instruction.
        const bool stops = trace(PTRACE_SEIZE, thread, 0) == 0 && trace(PTRACE_INTERRUPT, thread, 0) == 0;
        if (!stops || write(writeEnd.get(), "s", 1) != 1) _exit(EXIT_FAILURE);
        step(thread, instructions, signal);
    }
    writeEnd.reset();
    char started = 0;
    if (stepper > 0 && read(readEnd.get(), &started, 1) == 1) return stepper;
    cannot("trace", "the program", stepper < 0 ? errno : EPERM);
    if (stepper > 0) waitpid(stepper, nullptr, 0);
    return -1;
}

std::string procPath(pid_t process, const char* file) {
    return "/proc/" + std::to_string(process) + "/" + file;
}

// A field of /proc/PID/status; empty if the process is gone.
std::string statusField(pid_t process, const std::string& name) {
    std::string text;
    if (readTextFile(procPath(process, "status"), &text) != 0) return "";
    for (const std::string& line : splitLines(text)) {
        if (line.compare(0, name.size() + 2, name + ":\t") == 0) return line.substr(name.size() + 2);
    }
    return "";
}

pid_t statusNumber(pid_t process, const char* name) {
    return static_cast<pid_t>(std::strtol(statusField(process, name).c_str(), nullptr, 10));
}

// Whether a signal set of /proc/PID/status, such as SigBlk, holds the signal.
bool hasSignal(pid_t process, const char* set, int signal) {
    const unsigned long long mask = std::strtoull(statusField(process, set).c_str(), nullptr, 16);
    return (mask >> static_cast<unsigned>(signal - 1) & 1) != 0;
}

}  // namespace

void ProgramCalls::watch(pid_t init, std::vector<SyscallRule> rules) {
    init_ = init;
    rules_ = std::move(rules);
}

bool ProgramCalls::isOfProgram(const seccomp_notif& call) {
    const pid_t thread = static_cast<pid_t>(call.pid);
    if (command_ < 0) {
        if (call.data.nr == SYS_execve && statusNumber(thread, "PPid") == init_) command_ = thread;
        return false;
    }
    struct stat caller;
    struct stat command;
    struct stat init;
    if (stat(procPath(thread, "exe").c_str(), &caller) != 0) return false;
    if (stat(procPath(command_, "exe").c_str(), &command) != 0) return false;
    if (stat(procPath(init_, "exe").c_str(), &init) != 0) return false;
    const auto same = [](const struct stat& a, const struct stat& b) {
        return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    };
    return same(caller, command) && !same(caller, init);
}

ProgramCalls::Verdict ProgramCalls::take(const seccomp_notif& call) {
    const pid_t thread = static_cast<pid_t>(call.pid);
    const Restarted before = std::exchange(restarted_, Restarted());
    if (before.thread == thread && before.address == call.data.instruction_pointer) return Verdict::eCarryOut;
    Count& count = counts_[call.data.nr];
    ++count.all;
    if (thread == command_) ++count.own;
    const SyscallRule* rule = matchingRule(call);
    if (rule == nullptr) return Verdict::eCarryOut;
    if (rule->signal != 0) return deliver(call, *rule);
    error_ = rule->error;
    return Verdict::eFail;
}

const SyscallRule* ProgramCalls::matchingRule(const seccomp_notif& call) const {
    const bool own = static_cast<pid_t>(call.pid) == command_;
    const Count& count = counts_.at(call.data.nr);
    for (const SyscallRule& rule : rules_) {
        if (rule.number != call.data.nr || (rule.signal != 0 && !own)) continue;
        const unsigned number = rule.signal != 0 ? count.own : count.all;
        if (rule.onwards ? number >= rule.first : number == rule.first) return &rule;
    }
    return nullptr;
}

// The kernel restarts the call only after a signal that interrupts it. Without one, the caller would see the
// restart as an unknown errno value.
ProgramCalls::Verdict ProgramCalls::deliver(const seccomp_notif& call, const SyscallRule& rule) {
    if (rule.instructions != 0) {
        if (stepper_ < 0) stepper_ = startStepper(command_, rule.instructions, rule.signal);
        return Verdict::eCarryOut;
    }
    const bool interrupts =
        !hasSignal(command_, "SigBlk", rule.signal) && !hasSignal(command_, "SigIgn", rule.signal);
    if (kill(command_, rule.signal) != 0 || !interrupts) return Verdict::eCarryOut;
    restarted_ = {command_, call.data.instruction_pointer};
    return Verdict::eRestart;
}

void ProgramCalls::finish() {
    if (stepper_ > 0) waitpid(stepper_, nullptr, 0);
    stepper_ = -1;
}

std::string ProgramCalls::counts() const {
    std::vector<std::string> lines;
    for (const auto& [number, count] : counts_)
        lines.push_back(syscallName(number) + " " + std::to_string(count.all) + " " +
                        std::to_string(count.own) + "\n");
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines)
        text += line;
    return text;
}

}  // namespace rovusim
