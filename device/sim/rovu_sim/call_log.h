// The log of the commands that were run inside a device: one line each, in order.
//
// A line is: number, tab, progress, tab, the command with its words quoted where a shell needs it. Numbers
// start at 1 in each run. A skipped wait is a line with `-` for its number. Progress is the state of the
// progress file at that time, with attempts and percent, or `-`.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

struct Call {
    unsigned number = 0;  // 0: a wait
    std::string state;    // as the progress file spells it; "-" if there is none
    std::string tool;     // "sleep" for a wait
    std::vector<std::string> args;
    std::string line;  // tool and arguments verbatim from the log, quoted where needed
    int attempts = 0;
    int percent = 0;
};

/// All calls in the log, of one or more runs.
/// \return 0 or a positive errno value.
int readCalls(const std::string& stateDir, std::vector<Call>* calls);

/// The calls of the last run that was started.
/// \return 0 or a positive errno value.
int readCallsOfLastRun(const std::string& stateDir, std::vector<Call>* calls);

/// Empties the log.
/// \return 0 or a positive errno value.
int clearCalls(const std::string& stateDir);

/// Marks where the lines of a new run begin; with `fresh`, empties the log first.
/// \return 0 or a positive errno value.
[[nodiscard]] int beginRunInCallLog(const std::string& stateDir, bool fresh);

struct CallCount {
    unsigned overall = 0;  // the call's number in this run, from 1
    unsigned ofTool = 0;   // the same among the calls of its tool
};

/// Appends a call and adds its numbers to `count`, which must be zero. This process knows the device's /tmp as `tmp`.
/// \return 0 or a positive errno value.
[[nodiscard]] int recordCall(const std::string& stateDir, const std::string& tmp, const std::string& tool,
                             const std::vector<std::string>& args, CallCount* count);

/// Appends a skipped wait of `seconds`, a decimal number.
/// \return 0 or a positive errno value.
[[nodiscard]] int recordWait(const std::string& stateDir, const std::string& tmp, const std::string& seconds);

struct Progress {
    std::string state;
    int attempts = 0;
    int percent = 0;  // 0 to 100
};

/// Reads the file at `path`. `progress` is written on success only.
/// \return 0, the positive errno value of the read, or EILSEQ for any other contents.
int readProgressFile(const std::string& path, Progress* progress);

/// The file's path in a device's /tmp, which this process knows as `tmp`.
std::string progressPathIn(const std::string& tmp);

/// The file's path in a device's state directory.
std::string progressPath(const std::string& stateDir);

}  // namespace rovusim
