// Two ways to do the same work, measured in turn.
//
// The load and the clock rate of a machine change from second to second, so one side's times say little. Each iteration
// runs both sides, one directly after the other, and what is reported is the ratio within these pairs: its median and
// its quartiles.

#pragma once

#include <benchmark/benchmark.h>
#include <functional>
#include <string>
#include <vector>

/// What one run took, in seconds.
struct Cost {
    double wall = 0;
    double processor = 0;  // user and system time
};

/// One run of one side. Throws std::runtime_error if the work fails.
using Side = std::function<Cost()>;

/// Does `work` in this process. The processor time is that of the whole process.
Cost costOf(const std::function<void()>& work);

/// Runs a program, which is looked up in PATH, to its end. The cost is that from its start on: loading it and its
/// libraries counts. Throws if its exit status is not 0.
Cost costOfProgram(const std::vector<std::string>& command);

/// Runs both sides once in each iteration of `state`, in alternating order, after one run of each that does not
/// count. The time of an iteration is that of `ours`. Counters: `wall` and `cpu` are medians of the ratio ours / other,
/// with the quartiles `wall_q1`, `wall_q3`, `cpu_q1` and `cpu_q3`; `other_ms` is the median wall time of `other`.
void comparePairs(benchmark::State& state, const Side& ours, const Side& other);
