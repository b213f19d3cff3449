#include "script_content.h"

#include "temporary_file.h"

#include <cstdio>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

// Lets this machine's shell read the script without running anything of it. True also if there is no way to ask.
bool isGoodSyntax(const std::string& bytes) {
    TemporaryFile file;
    if (file.open()) return true;
    std::ofstream(file.path(), std::ios::binary) << bytes;
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return true;
    posix_spawn_file_actions_addopen(&actions, 0, file.path().c_str(), 0, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 1, 0);
    char shell[] = "sh";
    char option[] = "-n";
    char* argv[] = {shell, option, nullptr};
    pid_t child = -1;
    int status = 0;
    const bool started = posix_spawn(&child, "/bin/sh", &actions, nullptr, argv, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!started || waitpid(child, &status, 0) != child) return true;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

Findings checkScript(const std::string& bytes, const std::string& name, const FindingPlace& place) {
    Findings findings;
    if (bytes.find_first_not_of(" \t\r\n") == std::string::npos) {
        findings.add(eScriptEmpty, place, name + " is empty.");
    } else if (bytes.find('\0') != std::string::npos) {
        findings.add(eScriptBinary, place, name + " is no text: a shell runs it, whatever it is.");
    } else if (bytes.compare(0, sizeof kByteOrderMark - 1, kByteOrderMark) == 0) {
        findings.add(eScriptByteOrderMark, place,
                     name +
                         " begins with a byte-order mark, which the shell takes for part of the first word.");
    } else if (bytes.find("\r\n") != std::string::npos) {
        findings.add(eScriptLineEnds, place,
                     name +
                         " has lines that end in CR LF: the shell takes the CR for part of the last word.");
    } else if (!isGoodSyntax(bytes)) {
        findings.add(eScriptSyntax, place, "A shell does not understand " + name + ".");
    }
    return findings;
}
