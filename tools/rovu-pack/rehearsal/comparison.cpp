#include "rehearsal/comparison.h"

#include "host/text.h"
#include "rovu_sim/sandbox_paths.h"

#include <algorithm>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

std::vector<std::string> missedIn(const std::string& log, const std::string& root) {
    // As BusyBox, dash and bash say it: "save.sh: line 3: python3: not found", without "line", or "command not found".
    const std::regex missing("(?:.*/)?([^/ :]+): (?:line )?[0-9]+: (.+): (?:command )?not found");
    const std::regex syntax("(?:.*/)?([^/ :]+): (?:line )?([0-9]+): [Ss]yntax error:? ?(.*)");
    const std::regex option("(?:.*/)?([^/ :]+): (?:invalid|unrecognized) option(?: --|:)? '?-*([^']+)'?");
    const std::regex failure("Failed to run script \"(?:.*/)?([^/\"]+)\"");
    constexpr size_t kLongestLine = 1000;  // of a longer one the library would run out of stack
    std::vector<std::string> found;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        line.resize(std::min(line.size(), kLongestLine));
        std::smatch part;
        std::string sentence;
        if (std::regex_match(line, part, missing)) {
            sentence = part[1].str() + ": " + part[2].str() + ": not found in " + root;
        } else if (std::regex_search(line, part, failure)) {
            sentence = part[1].str() + ": ended with an error";
        } else if (std::regex_match(line, part, option)) {
            sentence = part[1].str() + ": has no option " + part[2].str() + " in " + root;
        } else if (std::regex_match(line, part, syntax)) {
            sentence = part[1].str() + ", line " + part[2].str() + ": a syntax error for the shell of " +
                       root + ": " + part[3].str();
        }
        if (!sentence.empty() && std::find(found.begin(), found.end(), sentence) == found.end())
            found.push_back(sentence);
    }
    return found;
}

namespace {

using Words = std::vector<std::string>;

// A step with the ids and sizes of this device, and as the simulator records it: without the folder of the program.
// A volume may get another id when it is made anew.
Words stepOn(const PlanStep& step, const SimulatedRun& run) {
    Words words = step.words;
    words.front().erase(0, words.front().rfind('/') + 1);
    const bool isRemoval = words.front() == "ubirmvol";
    for (std::string& word : words) {
        for (const auto& volumes : {isRemoval ? run.before : run.after, run.before}) {
            for (const SimulatedVolume& volume : volumes) {
                replaceAll("{id of " + volume.name + "}", std::to_string(volume.id), &word);
                replaceAll("{size of " + volume.name + "}", std::to_string(volume.size), &word);
            }
        }
    }
    return words;
}

// The id of a volume that is there neither before nor after the run is not known.
bool isWord(const std::string& planned, const std::string& ran) {
    const size_t unknown = planned.find("{id of ");
    return unknown == std::string::npos ? ran == planned : startsWith(ran, planned.substr(0, unknown));
}

bool isStep(const Words& planned, const Words& ran) {
    return std::equal(planned.begin(), planned.end(), ran.begin(), ran.end(), isWord);
}

std::string lineOf(const Words& words) {
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

std::string lastLineOf(const std::string& text) {
    const size_t end = text.find_last_not_of('\n');
    const size_t start = text.rfind('\n', end);
    return text.substr(start == std::string::npos ? 0 : start + 1,
                       end - (start == std::string::npos ? 0 : start + 1) + 1);
}

// In these states the update's own scripts run, whose commands no plan knows.
bool mayRunScripts(const std::string& state) {
    const UpdateState states[] = {eStateRunningPreparationScripts, eStateRunningScripts,
                                  eStateFlashingImages};
    return std::any_of(std::begin(states), std::end(states),
                       [&state](UpdateState each) { return state == stateName(each); });
}

// What a script can change by itself: the restart, and the set that boots.
bool isUpdatersOwn(const Words& words) {
    const bool setsSet = words.front() == "fw_setenv" && words.size() > 1 && words[1] == "bootswitcher";
    return words.front() == "reboot" || setsSet;
}

struct Comparer {
    const Selection& selection;
    const Plan& plan;
    const Tars& tars;
    const SimulatedRun& run;
    unsigned scriptSeconds;
    std::vector<std::string> found;

    // All other differences follow from that.
    bool foundLimit() {
        const std::string sign = "rovu-sim: ended: ";
        const size_t at = run.log.rfind(sign);
        if (run.status != rovusim::kExitLimit || at == std::string::npos) return false;
        found.push_back(run.log.substr(at + sign.size(), run.log.find('\n', at) - at - sign.size()));
        return true;
    }

    void compareOutcome() {
        const bool accepts = selection.refusal.empty();
        const std::string planned = stateName(plan.stages.back().state);
        if (run.state != planned || (run.status == 0) != accepts) {
            found.push_back("the run ended with status " + std::to_string(run.status) + " in state \"" +
                            run.state + "\" instead of " + (accepts ? "0" : "1") + " in \"" + planned + "\"");
        }
        if (!accepts && selection.refusedIn == eStateCheckingDependencies &&
            run.log.find(selection.refusal) == std::string::npos)
            found.push_back("the device did not say \"" + selection.refusal + "\"");
    }

    void compareCommands() {
        auto next = plan.steps.begin();
        double waited = 0;
        for (const RanCommand& command : run.commands) {
            const bool isPlanned = next != plan.steps.end() && command.state == stateName(next->state) &&
                                   isStep(stepOn(*next, run), command.words);
            if (isPlanned) {
                ++next;
                waited = 0;
            }
            waited += command.waited;
            if (scriptSeconds != 0 && waited > scriptSeconds)
                return found.push_back("waits of more than " + std::to_string(scriptSeconds) +
                                       " s in: " + std::prev(next)->line);
            if (!isPlanned && isUpdatersOwn(command.words))
                found.push_back("a script runs: " + lineOf(command.words));
            if (isPlanned || mayRunScripts(command.state)) continue;
            // Of a run that failed, which the outcome says already, this is only the clean-up.
            if (command.state == stateName(eStateError) && command.state == run.state && !found.empty())
                return;
            return found.push_back("a command that is not planned there: " + lineOf(command.words));
        }
        if (next != plan.steps.end()) found.push_back("a planned command did not run: " + next->line);
    }

    static const SimulatedVolume* find(const std::vector<SimulatedVolume>& volumes, const std::string& name) {
        const auto found =
            std::find_if(volumes.begin(), volumes.end(),
                         [&name](const SimulatedVolume& volume) { return volume.name == name; });
        return found == volumes.end() ? nullptr : &*found;
    }

    std::string before(const std::string& name) const {
        const SimulatedVolume* volume = find(run.before, name);
        return volume == nullptr ? "" : volume->md5;
    }

    // The MD5 that a volume must have afterwards.
    std::string expected(const std::string& name) const {
        if (std::find(plan.volumes.begin(), plan.volumes.end(), name) == plan.volumes.end())
            return before(name);
        const std::string suffix = name.substr(2);
        if (suffix == "_data") return before("k" + std::to_string(plan.activeSet) + suffix);
        const std::string kind = suffix.empty() ? "kernel" : "rootfs";
        for (const ImageChoice& choice : selection.images) {
            const TarFacts* tar = findTar(tars, choice.localName);
            const bool isTaken =
                choice.outcome == ImageChoice::eKept || choice.outcome == ImageChoice::ePromoted;
            if (choice.kind == kind && isTaken && tar != nullptr) return tar->imageMd5;
        }
        return "";
    }

    void compareVolumes() {
        std::set<std::string> names(plan.volumes.begin(), plan.volumes.end());
        for (const SimulatedVolume& volume : run.before)
            names.insert(volume.name);
        for (const std::string& name : names) {
            const SimulatedVolume* after = find(run.after, name);
            if (after == nullptr)
                found.push_back("volume " + name + " is missing after the run");
            else if (after->md5 != expected(name))
                found.push_back("volume " + name + " does not hold what the plan says");
        }
    }

    void compareFiles() {
        for (const std::string& path : run.lost)
            found.push_back("the update removes " + path);
    }

    void compareRestart() {
        if (run.restarts != plan.switches)
            found.push_back(run.restarts ? "the device restarts" : "the device does not restart");
        const unsigned planned = plan.switches ? plan.activeSet ^ 1 : plan.activeSet;
        if (run.nextSet != planned)
            found.push_back("the boot loader starts set " + std::to_string(run.nextSet));
        if (!run.bootFault.empty()) found.push_back("the device does not come back: " + run.bootFault);
        found.insert(found.end(), run.root.faults.begin(), run.root.faults.end());
        if (run.healthStatus != 0 && run.root.faults.empty())
            found.push_back("after the restart, the command on the new root file system ended with status " +
                            std::to_string(run.healthStatus) +
                            (run.healthLog.empty() ? "" : ": " + lastLineOf(run.healthLog)));
    }
};

}  // namespace

std::vector<std::string> differences(const Selection& selection, const Plan& plan, const Tars& tars,
                                     const SimulatedRun& run, unsigned scriptSeconds) {
    Comparer comparer = {selection, plan, tars, run, scriptSeconds, {}};
    if (comparer.foundLimit()) return comparer.found;
    comparer.compareOutcome();
    comparer.compareCommands();
    comparer.compareFiles();
    // If the run ended early, other differences follow.
    if (comparer.found.empty()) {
        comparer.compareVolumes();
        comparer.compareRestart();
    }
    return comparer.found;
}
