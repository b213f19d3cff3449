// The log of the commands that were run inside a device, one line each, in their order.
//
// A line is: number, tab, progress, tab, the command with each word quoted where a shell needs it. Numbers
// start at 1 with each run. A wait that was cut short is a line too, with `-` for its number. Progress is
// the state that the progress file named at that moment, with attempts and percent, or `-`.
#pragma once

#include <string>
#include <vector>

namespace rovusim {

struct Call {
    unsigned number = 0;  // 0: a wait
    std::string state;    // as the progress file spells it; "-" while there is none
    std::string tool;     // "sleep" for a wait
    std::vector<std::string> args;
    std::string line;  // tool and arguments as they stand in the log, quoted where needed
    int attempts = 0;
    int percent = 0;
};

/// All calls in the log, of all runs that it still holds.
/// \return 0 or a positive errno value.
int readCalls(const std::string& stateDir, std::vector<Call>* calls);

/// The calls of the last run that was started.
int readCallsOfLastRun(const std::string& stateDir, std::vector<Call>* calls);

/// Empties the log.
int clearCalls(const std::string& stateDir);

/// Marks where the lines of a new run begin; with `fresh` the log is emptied first.
int beginRunInCallLog(const std::string& stateDir, bool fresh);

struct CallCount {
    unsigned overall = 0;  // the call's number in this run, from 1
    unsigned ofTool = 0;   // the same among the calls of its tool
};

/// Appends a call and says which one of this run it is.
/// \return 0 or a positive errno value.
int recordCall(const std::string& stateDir, const std::string& tool, const std::vector<std::string>& args,
               CallCount* count);

/// Appends a wait of that many seconds, a decimal number.
int recordWait(const std::string& stateDir, const std::string& seconds);

}  // namespace rovusim
