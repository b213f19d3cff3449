#include "rovu_sim/progress_file.h"

#include "rovu_sim/text_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace rovusim {
namespace {

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
