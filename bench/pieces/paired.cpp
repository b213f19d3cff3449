#include "paired.h"

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <spawn.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double kMillisecondsPerSecond = 1000;

double monotonicSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double processorSeconds(const rusage& usage) {
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

double ownProcessorSeconds() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return processorSeconds(usage);
}

// The value below which the share `part` of the values lies, interpolated between two neighbours.
double quantile(std::vector<double> values, double part) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const double position = part * static_cast<double>(values.size() - 1);
    const size_t below = static_cast<size_t>(position);
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (position - static_cast<double>(below));
}

struct Pairs {
    std::vector<double> wall, processor, otherWall;

    void add(const Cost& ours, const Cost& other) {
        wall.push_back(ours.wall / other.wall);
        // Work too short for the kernel's accounting has no ratio.
        if (other.processor > 0) processor.push_back(ours.processor / other.processor);
        otherWall.push_back(other.wall);
    }
};

void report(benchmark::State& state, const std::string& name, const std::vector<double>& ratios) {
    state.counters[name] = quantile(ratios, 0.5);
    state.counters[name + "_q1"] = quantile(ratios, 0.25);
    state.counters[name + "_q3"] = quantile(ratios, 0.75);
}

Pairs runPairs(benchmark::State& state, const Side& ours, const Side& other) {
    Pairs pairs;
    ours();
    other();
    bool oursFirst = false;
    for (auto iteration : state) {
        static_cast<void>(iteration);
        oursFirst = !oursFirst;
        Cost ourCost;
        if (oursFirst) ourCost = ours();
        const Cost otherCost = other();
        if (!oursFirst) ourCost = ours();
        pairs.add(ourCost, otherCost);
        state.SetIterationTime(ourCost.wall);
    }
    return pairs;
}

}  // namespace

Cost costOf(const std::function<void()>& work) {
    const double wall = monotonicSeconds();
    const double processor = ownProcessorSeconds();
    work();
    return {monotonicSeconds() - wall, ownProcessorSeconds() - processor};
}

Cost costOfProgram(const std::vector<std::string>& command) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);

    const double start = monotonicSeconds();
    pid_t pid = 0;
    if (posix_spawnp(&pid, words[0], nullptr, nullptr, words.data(), environ) != 0)
        throw std::runtime_error("cannot start " + command[0]);
    int status = 0;
    rusage usage = {};
    if (wait4(pid, &status, 0, &usage) != pid || status != 0)
        throw std::runtime_error(command[0] + " failed");
    return {monotonicSeconds() - start, processorSeconds(usage)};
}

void comparePairs(benchmark::State& state, const Side& ours, const Side& other) {
    const Pairs pairs = runPairs(state, ours, other);
    report(state, "wall", pairs.wall);
    report(state, "cpu", pairs.processor);
    state.counters["other_ms"] = quantile(pairs.otherWall, 0.5) * kMillisecondsPerSecond;
}
