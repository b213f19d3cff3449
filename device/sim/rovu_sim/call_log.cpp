#include "rovu_sim/call_log.h"

#include "rovu_sim/shell_words.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <utility>
#include <vector>

namespace rovusim {
namespace {

std::string logPath(const std::string& stateDir) {
    return stateDir + "/calls.log";
}
std::string markPath(const std::string& stateDir) {
    return stateDir + "/run/log-start";
}

// Offset of the last run's first line, in bytes; 0 if the log was emptied since.
size_t startOfRun(const std::string& stateDir, size_t logSize) {
    std::string text;
    if (readTextFile(markPath(stateDir), &text) != 0) return 0;
    const size_t start = std::strtoul(text.c_str(), nullptr, 10);
    return start <= logSize ? start : 0;
}

std::string progressColumn(const std::string& tmp) {
    Progress progress;
    if (readProgressFile(progressPathIn(tmp), &progress) != 0) return "-";
    return progress.state + " " + std::to_string(progress.attempts) + " " + std::to_string(progress.percent);
}

// The name of a state can hold spaces, so the two numbers are taken from the end.
void parseProgress(const std::string& column, Call* call) {
    call->state = column;
    const size_t second = column.rfind(' ');
    if (second == std::string::npos || second == 0) return;
    const size_t first = column.rfind(' ', second - 1);
    if (first == std::string::npos) return;
    call->percent = static_cast<int>(std::strtol(column.c_str() + second, nullptr, 10));
    call->attempts = static_cast<int>(std::strtol(column.c_str() + first, nullptr, 10));
    call->state = column.substr(0, first);
}

bool parseLine(const std::string& line, Call* call) {
    const size_t first = line.find('\t');
    if (first == std::string::npos) return false;
    const size_t second = line.find('\t', first + 1);
    if (second == std::string::npos) return false;
    call->number = static_cast<unsigned>(std::strtoul(line.c_str(), nullptr, 10));
    parseProgress(line.substr(first + 1, second - first - 1), call);
    call->line = line.substr(second + 1);
    call->args = splitShellWords(call->line);
    if (call->args.empty()) return false;
    call->tool = call->args.front();
    call->args.erase(call->args.begin());
    return true;
}

int parseLog(const std::string& text, std::vector<Call>* calls) {
    std::vector<Call> all;
    for (const std::string& line : splitLines(text)) {
        Call call;
        if (!parseLine(line, &call)) return EILSEQ;
        all.push_back(call);
    }
    calls->swap(all);
    return 0;
}

int openLocked(const std::string& stateDir, zem::Descriptor* log) {
    zem::Descriptor file(open(logPath(stateDir).c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    if (flock(file.get(), LOCK_EX) != 0) return errno;
    *log = std::move(file);
    return 0;
}

// The value of a line such as "KEY":"value", or false for any other line.
bool valueOf(const std::string& line, const std::string& key, std::string* value) {
    const std::string head = "\"" + key + "\":\"";
    const std::string tail = "\",";
    if (line.size() < head.size() + tail.size()) return false;
    if (line.compare(0, head.size(), head) != 0) return false;
    if (line.compare(line.size() - tail.size(), tail.size(), tail) != 0) return false;
    *value = line.substr(head.size(), line.size() - head.size() - tail.size());
    return true;
}

int numberIn(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

}  // namespace

int readCalls(const std::string& stateDir, std::vector<Call>* calls) {
    std::string text;
    if (int rc = readTextFile(logPath(stateDir), &text); rc != 0) return rc;
    return parseLog(text, calls);
}

int readCallsOfLastRun(const std::string& stateDir, std::vector<Call>* calls) {
    std::string text;
    if (int rc = readTextFile(logPath(stateDir), &text); rc != 0) return rc;
    return parseLog(text.substr(startOfRun(stateDir, text.size())), calls);
}

int clearCalls(const std::string& stateDir) {
    zem::Descriptor log;
    if (int rc = openLocked(stateDir, &log); rc != 0) return rc;
    if (ftruncate(log.get(), 0) != 0) return errno;
    return replaceTextFile(markPath(stateDir), "0\n");
}

int beginRunInCallLog(const std::string& stateDir, bool fresh) {
    if (fresh) return clearCalls(stateDir);
    zem::Descriptor log;
    if (int rc = openLocked(stateDir, &log); rc != 0) return rc;
    const off_t end = lseek(log.get(), 0, SEEK_END);
    if (end < 0) return errno;
    return replaceTextFile(markPath(stateDir), std::to_string(end) + "\n");
}

int recordCall(const std::string& stateDir, const std::string& tmp, const std::string& tool,
               const std::vector<std::string>& args, CallCount* count) {
    zem::Descriptor log;
    if (int rc = openLocked(stateDir, &log); rc != 0) return rc;
    std::vector<Call> earlier;
    if (int rc = readCallsOfLastRun(stateDir, &earlier); rc != 0) return rc;
    for (const Call& call : earlier) {
        if (call.number == 0) continue;
        ++count->overall;
        if (call.tool == tool) ++count->ofTool;
    }
    ++count->overall;
    ++count->ofTool;
    std::string line =
        std::to_string(count->overall) + "\t" + progressColumn(tmp) + "\t" + quoteForShell(tool);
    for (const std::string& arg : args)
        line += " " + quoteForShell(arg);
    line += "\n";
    return writeFully(log.get(), line.data(), line.size());
}

int recordWait(const std::string& stateDir, const std::string& tmp, const std::string& seconds) {
    zem::Descriptor log;
    if (int rc = openLocked(stateDir, &log); rc != 0) return rc;
    const std::string line = "-\t" + progressColumn(tmp) + "\tsleep " + seconds + "\n";
    return writeFully(log.get(), line.data(), line.size());
}

int readProgressFile(const std::string& path, Progress* progress) {
    std::string text;
    if (int rc = readDeviceFile(path, &text); rc != 0) return rc;
    const std::vector<std::string> lines = splitLines(text);
    if (lines.size() != 3) return EILSEQ;
    // A script may have written it, and what it says is printed.
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
    if (std::any_of(lines[0].begin(), lines[0].end(), isControl)) return EILSEQ;
    std::string state;
    std::string attempts;
    std::string percent;
    if (!valueOf(lines[0], "STATE", &state)) return EILSEQ;
    if (!valueOf(lines[1], "DL_ATTEMPTS", &attempts)) return EILSEQ;
    if (!valueOf(lines[2], "DL_PERCENT", &percent)) return EILSEQ;
    progress->state = state;
    progress->attempts = numberIn(attempts);
    progress->percent = numberIn(percent);
    return 0;
}

std::string progressPathIn(const std::string& tmp) {
    return tmp + "/rovu.progress";
}

std::string progressPath(const std::string& stateDir) {
    return progressPathIn(stateDir + "/tmp");
}

}  // namespace rovusim
