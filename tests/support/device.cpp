#include "support/device.h"

#include "rovu_sim/boot_env.h"
#include "rovu_sim/call_log.h"
#include "rovu_sim/volume_store.h"
#include "support/log_capture.h"

#include <regex>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr useconds_t kPoll = 5000;  // microseconds

// What the volume tool prints comes in between, even amid a line: the log's stream is flushed when it is
// full.
std::string messagesOf(const std::string& out) {
    return withoutLogHeads(std::regex_replace(out, std::regex("Volume ID [0-9]+, size [^\n]*\n"), ""));
}

std::vector<rovusim::Call> callsOf(const std::string& directory) {
    std::vector<rovusim::Call> calls;
    rovusim::readCallsOfLastRun(directory, &calls);
    return calls;
}

}  // namespace

Device::Device(const rovusim::DeviceOptions& options) {
    if (rovusim::createDevice(directory, options) != 0) throw std::runtime_error("no device " + directory);
}

void Device::launch(const char* option, const Strings& wrapper, const Strings& args) {
    Strings command = {ROVU_SIM_PROGRAM, "run", directory, option, "--network"};
    // The wrapper finds the program by its path.
    if (!wrapper.empty()) command.insert(command.end(), {"--bind", ROVU_BUILD_DIRECTORY});
    // For tests/coverage/run: a command inside gets none of the host's environment.
    if (const char* counters = getenv("GCOV_PREFIX"))
        command.insert(command.end(), {"--setenv", std::string("GCOV_PREFIX=") + counters});
    command.insert(command.end(), faults_.begin(), faults_.end());
    command.push_back("--");
    command.insert(command.end(), wrapper.begin(), wrapper.end());
    command.push_back(ROVU_PROGRAM);
    command.insert(command.end(), args.begin(), args.end());
    faults_.clear();
    unlink((scratch_.path + "/out").c_str());
    unlink((scratch_.path + "/err").c_str());
    program_.reset(new Program(command, scratch_.path + "/out", scratch_.path + "/err"));
}

Outcome Device::run(const Strings& args, const Strings& wrapper) {
    launch("--no-wait", wrapper, args);
    return finish();
}

void Device::start(const Strings& args) {
    launch("--fresh-log", {}, args);
}

Outcome Device::finish() {
    Outcome outcome;
    outcome.status = program_->wait();
    outcome.out = readWholeFile(scratch_.path + "/out");
    outcome.err = readWholeFile(scratch_.path + "/err");
    outcome.messages = messagesOf(outcome.out);
    return outcome;
}

bool Device::has(const std::string& file) const {
    return access(pathOf(file).c_str(), F_OK) == 0;
}

Strings Device::commands() const {
    Strings lines;
    for (const rovusim::Call& call : callsOf(directory)) {
        if (call.number != 0) lines.push_back(call.state + ": " + call.line);
    }
    return lines;
}

Strings Device::waits(const std::string& inState) const {
    Strings seconds;
    for (const rovusim::Call& call : callsOf(directory)) {
        const bool counts = inState.empty() || call.state == inState;
        if (call.number == 0 && counts) seconds.push_back(call.args.front());
    }
    return seconds;
}

std::string Device::state() const {
    rovusim::Progress progress;
    rovusim::readProgressFile(rovusim::progressPath(directory), &progress);
    return progress.state;
}

bool Device::reaches(const std::string& point) const {
    const auto isThere = [&] {
        const Strings calls = commands();
        return state() == point || (!calls.empty() && calls.back().compare(0, point.size(), point) == 0);
    };
    while (!isThere() && program_->isRunning())
        usleep(kPoll);
    return isThere();
}

std::string Device::volume(const std::string& name) const {
    std::string bytes;
    return rovusim::readVolume(directory, name, &bytes) == 0 ? bytes : "(none)";
}

std::string Device::bootswitcher() const {
    std::string value;
    rovusim::getBootVariable(directory, "bootswitcher", &value);
    return value;
}
