#include "script_content.h"

#include "key_kinds.h"
#include "shell_dangers.h"
#include "shell_dialect.h"
#include "temporary_file.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>

extern char** environ;

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

// \return whether the shell understands the file; nothing if it cannot be started.
std::optional<bool> understands(const std::vector<std::string>& shell, const std::string& path) {
    constexpr int kNoShell = 127;  // a BusyBox without one
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return std::nullopt;
    posix_spawn_file_actions_addopen(&actions, 0, path.c_str(), 0, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 1, 0);
    std::vector<char*> argv;
    argv.reserve(shell.size() + 1);
    for (const std::string& word : shell)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t child = -1;
    int status = 0;
    const bool started = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (!started || waitpid(child, &status, 0) != child) return std::nullopt;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoShell) return std::nullopt;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Lets a shell read the script without running anything of it: BusyBox's, as on a device; without one this machine's. True
// also if there is no way to ask.
bool isGoodSyntax(const std::string& bytes) {
    TemporaryFile file;
    if (file.open()) return true;
    std::ofstream(file.path(), std::ios::binary) << bytes;
    std::optional<bool> isGood = understands({"busybox", "sh", "-n"}, file.path());
    if (!isGood) isGood = understands({"/bin/sh", "-n"}, file.path());
    return isGood.value_or(true);
}

// The program that the first line names, without its folder; empty: none.
std::string interpreterOf(const std::string& bytes) {
    if (bytes.compare(0, 2, "#!") != 0) return "";
    std::istringstream line(bytes.substr(2, bytes.find('\n') - 2));
    std::string program;
    line >> program;
    program.erase(0, program.rfind('/') + 1);
    while (program == "env" || program == "busybox" || program.compare(0, 1, "-") == 0) {
        if (!(line >> program)) break;
    }
    return program;
}

// The device gives the script to /bin/sh, whatever its first line says.
void checkInterpreter(const std::string& bytes, const std::string& name, const FindingPlace& place,
                      Findings* findings) {
    constexpr const char* kShells[] = {"", "sh", "ash", "dash", "hush"};
    constexpr const char* kLargeShells[] = {"bash", "ksh", "mksh", "zsh"};
    const std::string program = interpreterOf(bytes);
    if (std::find(std::begin(kShells), std::end(kShells), program) != std::end(kShells)) return;
    Finding& finding = findings->add(eScriptInterpreter, place,
                                     name + " names " + program + " in its first line, and /bin/sh runs it.");
    if (std::find(std::begin(kLargeShells), std::end(kLargeShells), program) != std::end(kLargeShells))
        finding.severity = eNote;
}

// "an array (lines 3, 8)"; empty: there is none of the kind.
std::string constructsText(const std::vector<ScriptConstruct>& constructs, ScriptConstruct::Kind kind) {
    constexpr size_t kMostLines = 5;
    std::string text;
    for (const ScriptConstruct& construct : constructs) {
        if (construct.kind != kind) continue;
        text += (text.empty() ? "" : ", ") + std::string(construct.name) +
                (construct.lines.size() == 1 ? " (line " : " (lines ");
        for (size_t i = 0; i < std::min(construct.lines.size(), kMostLines); ++i)
            text += (i == 0 ? "" : ", ") + std::to_string(construct.lines[i]);
        text += construct.lines.size() > kMostLines ? ", ...)" : ")";
    }
    return text;
}

void checkVariables(const std::string& bytes, const std::string& name, const FindingPlace& place,
                    Findings* findings) {
    constexpr size_t kMost = 5;
    std::string text;
    size_t count = 0;
    for (const auto& [variable, line] : findUnset(bytes)) {
        if (++count > kMost) continue;
        text += (text.empty() ? "" : ", ") + variable + " (line " + std::to_string(line) + ")";
    }
    if (count > kMost) text += ", ...";
    if (!text.empty()) findings->add(eScriptUnset, place, name + " uses what nothing sets: " + text + ".");
}

void checkConstructs(const std::string& bytes, const std::string& name, const FindingPlace& place,
                     Findings* findings) {
    const std::vector<ScriptConstruct> constructs = findConstructs(bytes);
    const std::string dangers = constructsText(findDangers(bytes), ScriptConstruct::eHazard);
    const std::string foreign = constructsText(findForeignText(bytes), ScriptConstruct::eHazard);
    const std::string bash = constructsText(constructs, ScriptConstruct::eBash);
    if (!dangers.empty()) findings->add(eScriptDanger, place, name + " has " + dangers + ".");
    if (!foreign.empty()) findings->add(eScriptCharacter, place, name + " has " + foreign + ".");
    checkVariables(bytes, name, place, findings);
    const std::string hazards = constructsText(constructs, ScriptConstruct::eHazard);
    if (!bash.empty())
        findings->add(eScriptBash, place,
                      name + " has what bash knows and the shell of BusyBox does not: " + bash + ".");
    if (!hazards.empty()) findings->add(eScriptHazard, place, name + " has " + hazards + ".");
    if (endsInTest(bytes))
        findings->add(
            eScriptLastTest, place,
            name +
                " ends in a test before \"&&\": where it is false, the script fails, and so does the update.");
}

}  // namespace

Findings checkScript(const std::string& bytes, const std::string& name, const FindingPlace& place) {
    Findings findings;
    if (isPrivateKey(bytes))
        findings.add(ePrivateKeyServed, place, name + " has a private key in it, which every device gets.")
            .advice = "Take it out, and never use that key again.";
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
    } else {
        checkInterpreter(bytes, name, place, &findings);
        if (!isGoodSyntax(bytes))
            findings.add(eScriptSyntax, place, "A shell does not understand " + name + ".");
        checkConstructs(bytes, name, place, &findings);
    }
    return findings;
}
