#include "content/script_content.h"

#include "content/shell_commands.h"
#include "host/child.h"
#include "host/scratch.h"
#include "host/text.h"
#include "run/settings.h"
#include "signing/key_files.h"

#include <algorithm>
#include <cstdio>
#include <fnmatch.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>

namespace {

using Words = std::vector<std::string>;

constexpr char kRawFlash[] = "a write to raw flash or a disk, which may hold the boot loader";
constexpr char kVolumes[] = "a removal of the device's volumes";
constexpr char kBootVariable[] = "bootswitcher, which the device changes itself";
constexpr char kBootLoader[] = "a change of what the boot loader does";
constexpr char kNeeded[] = "a removal of what the device needs for the next update";
constexpr char kSystem[] = "a removal of the device's system or data";
constexpr char kUpdater[] = "an end of rovu, which runs the script";

const char* const kNeededFiles[] = {kPublicKeyPath, "/app0/secrets/rovu/preshared", "/app0/.ubiRefChk1",
                                    "/app0/.ubiRefChk2"};
const std::set<std::string> kNeededFolders = {"/etc/ssh", "/app0/secrets", "/app0/secrets/rovu"};
const std::set<std::string> kSystemFolders = {"",     "/app0",    "/bin",  "/boot", "/dev", "/etc",
                                              "/lib", "/overlay", "/sbin", "/usr",  "/var"};
const std::set<std::string> kBootLoaderWords = {"-s",    "--script", "altbootcmd", "bootargs", "bootcmd",
                                                "bootm", "mtdids",   "mtdparts",   "preboot"};
const std::set<std::string> kFlashTools = {"flash_erase", "flash_eraseall", "flashcp", "nandwrite",
                                           "ubiformat"};

std::string baseName(const std::string& word) {
    return word.substr(word.rfind('/') + 1);
}

bool isRaw(const std::string& path) {
    for (const char* start : {"/dev/mtd", "/dev/mmcblk", "/dev/sd", "/dev/nand"}) {
        if (startsWith(path, start)) return true;
    }
    return false;
}

// Its arguments that are no options.
Words operandsOf(const ShellCommand& command) {
    Words operands;
    for (size_t i = 1; i < command.words.size(); ++i) {
        if (command.words[i][0] != '-') operands.push_back(command.words[i]);
    }
    return operands;
}

bool hasOption(const ShellCommand& command, char letter) {
    return std::any_of(command.words.begin() + 1, command.words.end(), [letter](const std::string& word) {
        return word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find(letter) != std::string::npos;
    });
}

bool writesRaw(const std::string& name, const ShellCommand& command) {
    const Words operands = operandsOf(command);
    if (std::any_of(command.targets.begin(), command.targets.end(), isRaw)) return true;
    if (name == "mtd_debug" || name == "mtd")
        return !operands.empty() && operands.front() != "info" && operands.front() != "read";
    if (kFlashTools.count(name) != 0 || startsWith(name, "mkfs") || startsWith(name, "mke2fs"))
        return kFlashTools.count(name) != 0 || std::any_of(operands.begin(), operands.end(), isRaw);
    if (name == "dd")
        return std::any_of(operands.begin(), operands.end(), [](const std::string& word) {
            return startsWith(word, "of=") && isRaw(word.substr(3));
        });
    const bool writesLast = name == "cp" || name == "mv" || name == "tee";
    return writesLast && !operands.empty() && isRaw(operands.back());
}

// A volume of another name than those of the two sets is the script's own.
bool removesVolumes(const std::string& name, const ShellCommand& command) {
    if (name == "ubidetach" || name == "ubirename") return true;
    if (name != "ubirmvol" && name != "ubirsvol") return false;
    for (size_t i = 1; i + 1 < command.words.size(); ++i) {
        const std::string& volume = command.words[i + 1];
        if (command.words[i] == "-N" && !startsWith(volume, "k0") && !startsWith(volume, "k1")) return false;
    }
    return true;
}

// "/overlay/*" and "/overlay/" are "/overlay".
std::string folderOf(std::string path) {
    for (const char* end : {"/*", "/.", "/.*", "/"}) {
        const std::string ending = end;
        if (path.size() >= ending.size() &&
            path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
            path.resize(path.size() - ending.size());
    }
    return path;
}

const char* removal(const std::string& name, const ShellCommand& command) {
    if (name != "rm" && name != "mv" && name != "unlink") return nullptr;
    Words operands = operandsOf(command);
    if (name == "mv" && !operands.empty()) operands.pop_back();
    for (const std::string& path : operands) {
        if (path.empty() || path[0] != '/') continue;
        const std::string folder = folderOf(path);
        const bool isWhole = name == "mv" || hasOption(command, 'r') || hasOption(command, 'R');
        const bool isContents = path.find('*') != std::string::npos;
        for (const char* needed : kNeededFiles) {
            if (fnmatch(path.c_str(), needed, FNM_PATHNAME | FNM_PERIOD) == 0) return kNeeded;
        }
        if (!isWhole && !isContents) continue;
        if (kNeededFolders.count(folder) != 0) return kNeeded;
        if (kSystemFolders.count(folder) != 0) return kSystem;
    }
    return nullptr;
}

bool hasWord(const ShellCommand& command, const std::string& word) {
    return std::find(command.words.begin() + 1, command.words.end(), word) != command.words.end();
}

const char* dangerOf(const ShellCommand& command) {
    if (command.words.empty())
        return std::any_of(command.targets.begin(), command.targets.end(), isRaw) ? kRawFlash : nullptr;
    const std::string name = baseName(command.words.front());
    if (writesRaw(name, command)) return kRawFlash;
    if (removesVolumes(name, command)) return kVolumes;
    if (name == "fw_setenv" && hasWord(command, "bootswitcher")) return kBootVariable;
    const auto isLoaders = [](const std::string& word) { return kBootLoaderWords.count(word) != 0; };
    if (name == "fw_setenv" && std::any_of(command.words.begin(), command.words.end(), isLoaders))
        return kBootLoader;
    if ((name == "killall" || name == "pkill") && hasWord(command, "rovu")) return kUpdater;
    return removal(name, command);
}

constexpr size_t kLongestLine = 1000;  // bytes that are looked at: the library's expressions recurse

constexpr ScriptConstruct::Kind eBash = ScriptConstruct::eBash;
constexpr ScriptConstruct::Kind eHazard = ScriptConstruct::eHazard;

constexpr char kArgument[] = "an argument, and the device gives none";

struct Construct {
    ScriptConstruct::Kind kind;
    const char* name;
    const char* pattern;
};

const Construct kConstructs[] = {
    {eBash, "an array", R"((^|[\s;&|({])[A-Za-z_]\w*\+?=\()"},
    {eBash, "an array", R"(\$\{[A-Za-z_]\w*\[)"},
    {eBash, "a here-string", R"(<<<)"},
    {eBash, "an arithmetic for", R"((^|[\s;])for\s*\(\()"},
    {eBash, "a range in braces", R"(\{\d+\.\.\d+\})"},
    {eBash, "a change of case", R"(\$\{[A-Za-z_]\w*(\^\^?|,,?)\})"},
    {eBash, "an indirect expansion", R"(\$\{![A-Za-z_])"},
    {eBash, "a pipe of errors", R"(\|&)"},
    {eBash, "a command of bash",
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(declare|typeset|mapfile|readarray|shopt|pushd|popd|coproc|printf -v|read -a)\s)"},
    {eHazard, "a file of the working directory, which is not that of the script",
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(\.|source|sh|)\s*\./[A-Za-z_])"},
    {eHazard, "a reboot, which cuts the update short",
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(/sbin/)?(reboot|poweroff|halt|shutdown)(\s|;|$))"},
    {eHazard, "a removal of the device's work directory", R"(rm\s+(-\S+\s+)+/tmp/(rovu/?|\*)?(\s|;|$))"},
    {eHazard, "a command that only workstations have",
     R"((^|[;&|]|\sthen|\sdo|\selse)\s*(sudo|apt|apt-get|yum|dnf|systemctl)\s)"},
    {eHazard, kArgument, R"(\$\{?[1-9@*])"},
};

const std::vector<std::regex>& patterns() {
    static const std::vector<std::regex> compiled = [] {
        std::vector<std::regex> list;
        for (const Construct& construct : kConstructs)
            list.emplace_back(construct.pattern);
        return list;
    }();
    return compiled;
}

// Its own, or those of its functions.
bool setsArguments(const std::string& script) {
    for (const char* word : {"()", "( )", "function ", "set -", "getopts"}) {
        if (script.find(word) != std::string::npos) return true;
    }
    return false;
}

void noteLine(const char* name, size_t line, std::vector<ScriptConstruct>* found,
              ScriptConstruct::Kind kind = eHazard) {
    for (ScriptConstruct& other : *found) {
        if (other.name != std::string(name)) continue;
        if (other.lines.back() != line) other.lines.push_back(line);
        return;
    }
    found->push_back({kind, name, {line}});
}

// At the beginning of a word, before a letter: an option that lost its hyphen.
bool hasDashForHyphen(const std::string& line) {
    for (const char* dash : {"\xE2\x80\x93", "\xE2\x80\x94", "\xE2\x88\x92", "\xE2\x80\x90"}) {
        for (size_t at = line.find(dash); at != std::string::npos; at = line.find(dash, at + 1)) {
            const bool begins = at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t';
            if (begins && at + 3 < line.size() && isalpha(static_cast<unsigned char>(line[at + 3])) != 0)
                return true;
        }
    }
    return false;
}

bool hasTypographicQuote(const std::string& line) {
    for (const char* quote :
         {"\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9C", "\xE2\x80\x9D", "\xE2\x80\x9E", "\xC2\xA0"}) {
        if (line.find(quote) != std::string::npos) return true;
    }
    return false;
}

bool isFilledInLater(const ShellCommand& command) {
    static const std::regex pattern(
        R"(@[A-Z][A-Z0-9_]+@|CHANGE_?ME|REPLACE_?ME|FIXME|__[A-Z][A-Z0-9]+__|%%[A-Z_]+%%|\{\{ ?[A-Za-z_.]+ ?\}\})");
    std::string text;
    for (const Words& words : {command.words, command.targets}) {
        for (const std::string& word : words)
            text += word.substr(0, kLongestLine) + " ";
    }
    return std::regex_search(text.substr(0, kLongestLine), pattern);
}

}  // namespace

std::vector<ScriptConstruct> findConstructs(const std::string& script) {
    std::vector<ScriptConstruct> found;
    const ShellScript read = readScript(script);
    const bool hasArguments = setsArguments(script);
    std::istringstream lines(read.code);
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        line.resize(std::min(line.size(), kLongestLine));
        for (size_t i = 0; i < patterns().size(); ++i) {
            const Construct& construct = kConstructs[i];
            if (construct.name == kArgument && hasArguments) continue;
            if (std::regex_search(line, patterns()[i]))
                noteLine(construct.name, number, &found, construct.kind);
        }
    }
    if (read.openDocument != 0) noteLine("a here-document without its end", read.openDocument, &found);
    return found;
}

bool endsInTest(const std::string& script) {
    std::istringstream lines(readScript(script).code);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) last = line;
    }
    static const std::regex test(R"(^(\[\[?\s|test\s|grep\s+-q\s)[^;|]*&&[^;|]*$)");
    return last.size() < kLongestLine && std::regex_search(last, test);
}

std::vector<ScriptConstruct> findDangers(const std::string& script) {
    std::vector<ScriptConstruct> found;
    for (const ShellCommand& command : readScript(script).commands) {
        if (const char* danger = dangerOf(command)) noteLine(danger, command.line, &found);
    }
    return found;
}

std::vector<ScriptConstruct> findForeignText(const std::string& script) {
    std::vector<ScriptConstruct> found;
    const ShellScript read = readScript(script);
    std::istringstream lines(read.code);
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (hasTypographicQuote(line)) noteLine("a typographic quote or space", number, &found);
        if (hasDashForHyphen(line)) noteLine("a dash in place of a hyphen", number, &found);
    }
    for (const ShellCommand& command : read.commands) {
        if (isFilledInLater(command)) noteLine("a placeholder that was not replaced", command.line, &found);
    }
    return found;
}

std::vector<std::pair<std::string, size_t>> findUnset(const std::string& script) {
    std::vector<std::pair<std::string, size_t>> found;
    std::set<std::string> names;
    for (const ShellVariable& use : readScript(script).unset) {
        if (names.insert(use.name).second) found.emplace_back(use.name, use.line);
    }
    return found;
}

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

// \return whether the shell understands the file; nothing if it cannot be started.
std::optional<bool> understands(const std::vector<std::string>& shell, const std::string& path) {
    constexpr int kNoShell = 127;  // a BusyBox without one
    int status = 0;
    if (runChild(shell, path, "/dev/null", &status) || status == kNoShell) return std::nullopt;
    return status == 0;
}

// Lets a shell parse the script without running it: that of BusyBox, as on a device, or else this machine's. True
// also if no shell can be started.
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
    if (!text.empty())
        findings->add(eScriptUnset, place, name + " uses variables that nothing sets: " + text + ".");
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
        findings.add(ePrivateKeyServed, place, name + " contains a private key, which every device gets.")
            .advice = "Remove it, and never use that key again.";
    if (bytes.find_first_not_of(" \t\r\n") == std::string::npos) {
        findings.add(eScriptEmpty, place, name + " is empty.");
    } else if (bytes.find('\0') != std::string::npos) {
        findings.add(eScriptBinary, place, name + " is not text, but a shell will run it.");
    } else if (bytes.compare(0, sizeof kByteOrderMark - 1, kByteOrderMark) == 0) {
        findings.add(eScriptByteOrderMark, place,
                     name + " begins with a byte-order mark, which becomes part of the first word.");
    } else if (bytes.find("\r\n") != std::string::npos) {
        findings.add(eScriptLineEnds, place,
                     name + " has lines that end in CR LF: the CR becomes part of the last word.");
    } else {
        checkInterpreter(bytes, name, place, &findings);
        if (!isGoodSyntax(bytes))
            findings.add(eScriptSyntax, place, "A shell does not understand " + name + ".");
        checkConstructs(bytes, name, place, &findings);
    }
    return findings;
}
