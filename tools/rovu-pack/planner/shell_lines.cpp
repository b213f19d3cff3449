#include "shell_lines.h"

#include "ubi_tools/ubi_volume.h"
#include "util/path.h"
#include "work_dir.h"

#include <algorithm>

namespace {

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

}  // namespace

std::string workPath(const std::string& name) {
    std::string path = kWorkDir;
    return appendPath(path, name);
}

std::string extractLine(const std::string& tar, const std::string& member) {
    return "tar -xf " + quoted(workPath(tar)) + " -C " + quoted(kWorkDir) + " " + quoted(member);
}

std::string scriptLine(const std::string& name) {
    return "/bin/sh " + quoted(workPath(name));
}

std::string digestLine(const std::string& name) {
    return "sha256sum " + quoted(workPath(name));
}

std::string flashLine(const std::string& id, const std::string& name) {
    return "ubiupdatevol " + quoted(std::string(kUbiDevice) + "_" + id) + " " + quoted(workPath(name));
}

std::vector<std::string> wordsOfLine(const std::string& line) {
    std::vector<std::string> words(1);
    bool quoted = false;
    bool braced = false;
    for (const char c : line) {
        if (c == '\'') {
            quoted = !quoted;
        } else if (c == ' ' && !quoted && !braced) {
            if (!words.back().empty()) words.emplace_back();
        } else {
            if (c == '{') braced = true;
            if (c == '}') braced = false;
            words.back() += c;
        }
    }
    for (size_t i = 0; i < words.size();) {
        const size_t redirection = words[i] == "2>&-" ? 1 : words[i] == ">" ? 2 : 0;
        const auto from = words.begin() + static_cast<long>(i);
        words.erase(from, from + static_cast<long>(std::min(redirection, words.size() - i)));
        if (redirection == 0) ++i;
    }
    return words;
}
