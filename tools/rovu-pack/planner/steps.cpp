// The update sequence as states and commands. The order is that of the device's program, and tests compare
// the two together.

#include "planner/steps.h"

#include "install/install.h"
#include "install/scripts.h"
#include "planner/plan.h"
#include "run/settings.h"
#include "ubi_tools/ubi_volume.h"
#include "util/file.h"

#include <algorithm>
#include <cstdio>

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

namespace {

using Part = UpdateSpecVer1::Part;

const std::string kDevice = std::string("'") + kUbiDevice;

std::string idOf(const std::string& volume) {
    return "{id of " + volume + "}";
}

std::string nodeOf(const std::string& volume) {
    return kDevice + "_" + idOf(volume) + "'";
}

struct VolumeRequest {
    std::string volume;
    std::string kind;  // "static" or "dynamic"
    std::string size;
};

class Sequence {
public:
    Sequence(Plan* planned, const Selection& chosen, const InactiveSet& inactive)
        : plan_(planned), selection_(chosen), inactive_(inactive) {
        spec_ = chosen.record.get();
    }

    void walk() {
        if (prepare()) carryOut();
        run(std::string("rm -Rf '") + kWorkDir + "'");
    }

private:
    void enter(UpdateState state, const std::string& subject = "") {
        plan_->stages.push_back({state, subject});
    }

    void run(const std::string& line) {
        plan_->steps.push_back(
            {plan_->stages.size() - 1, plan_->stages.back().state, line, wordsOfLine(line)});
    }

    // Up to the choice of images. Returns whether the device goes on.
    bool prepare() {
        enter(eStateInitializing);
        run("fw_printenv bootswitcher");
        enter(eStateDownloadingSpec);
        if (refusedIn(eStateDownloadingSpec)) return false;
        enter(eStateParsingSpec);
        if (refusedIn(eStateParsingSpec)) return false;
        enter(eStateCheckingDependencies);
        run("/usr/local/bin/readplatform.sh model");
        if (selection_.readsRootfs) run("/usr/local/bin/readplatform.sh rootfsrev");
        return !refusedIn(eStateCheckingDependencies);
    }

    bool refusedIn(UpdateState stage) {
        if (selection_.refusedIn != stage) return false;
        enter(eStateError);
        return true;
    }

    void carryOut() {
        if (spec_->script_url[0] != '\0') fetch(eStateDownloadingScripts, kScriptTar, spec_->script_hash);
        const Part* position = runPreparationScripts();
        fetchImages(position);
        if (!walkParts(position)) return enter(eStateComplete);
        switchOver();
    }

    void fetch(UpdateState download, const std::string& name, const std::string& hash) {
        enter(download, name);
        if (!hash.empty()) run(digestLine(name));
    }

    const Part* next(const Part* part) const { return nextPart(spec_, const_cast<Part*>(part)); }

    const Part* runPreparationScripts() {
        const Part* part = firstPart(spec_);
        for (; part != nullptr && isPreparationScript(*part); part = next(part)) {
            enter(eStateRunningPreparationScripts, part->name);
            runScript(kScriptTar, part->name);
        }
        return part;
    }

    void runScript(const std::string& tar, const std::string& name) {
        run(extractLine(tar, name));
        run(scriptLine(name));
    }

    void fetchImages(const Part* position) {
        for (const Part* part = position; part != nullptr; part = next(part)) {
            if (!isScript(*part)) fetch(eStateDownloadingImages, part->img.localName, part->img.hash);
        }
    }

    // Returns whether a switch follows.
    bool walkParts(const Part* position) {
        bool clonePending = spec_->clone_overlay;
        for (const Part* part = position; part != nullptr; part = next(part)) {
            if (endsRun(*part)) return false;
            if (isScript(*part)) {
                enter(eStateRunningScripts, part->name);
                runScript(kScriptTar, part->name);
                continue;
            }
            if (clonePending) cloneOverlay();
            clonePending = false;
            installImage(*part);
        }
        return true;
    }

    uint32_t inactiveSet() const { return plan_->activeSet ^ 1; }

    void look(const std::string& volume) { run("ubinfo " + kDevice + "' -N '" + volume + "' 2>&-"); }

    void makeVolume(const VolumeRequest& request) {
        const std::string suffix = request.volume.substr(2);
        const std::string& before = suffix.empty()      ? inactive_.kernel
                                    : suffix == "_root" ? inactive_.rootfs
                                                        : inactive_.data;
        look(request.volume);
        if (before != kMissing) run("ubirmvol " + kDevice + "' -n " + idOf(request.volume));
        run("ubimkvol " + kDevice + "' -N '" + request.volume + "' -t " + request.kind + " -s " +
            request.size);
        look(request.volume);
        plan_->volumes.push_back(request.volume);
    }

    void cloneOverlay() {
        const std::string source = "k" + std::to_string(plan_->activeSet) + "_data";
        const std::string target = "k" + std::to_string(inactiveSet()) + "_data";
        enter(eStateFlashingOverlay, source + " -> " + target);
        look(source);
        run("md5sum " + nodeOf(source));
        makeVolume({target, "dynamic", "{size of " + source + "}"});
        const std::string staging = "_img.tmp";
        run("cat " + nodeOf(source) + " > '" + workPath(staging) + "'");
        run(flashLine(idOf(target), staging));
        run("md5sum " + nodeOf(target));
    }

    void installImage(const Part& part) {
        const UpdateSpecVer1::Image& image = part.img;
        char volume[kVolumeNameSize] = "";
        if (make_ubiVolume(inactiveSet(), part, volume) != 0)
            return;  // a set has one digit, so the name fits
        enter(eStateFlashingImages, std::string(image.image) + " -> " + volume);
        if (image.preinst[0] != '\0') runScript(image.localName, image.preinst);
        run(extractLine(image.localName, image.image));
        makeVolume({volume, "static", std::to_string(image.imsize)});
        run(flashLine(idOf(volume), image.image));
        run("md5sum " + nodeOf(volume));
        if (image.postinst[0] != '\0') runScript(image.localName, image.postinst);
    }

    void switchOver() {
        plan_->switches = true;
        enter(eStateSwitchingVolume, "to set " + std::to_string(inactiveSet()));
        char value[8];
        snprintf(value, sizeof value, "0A0A%02X", inactiveSet());
        run(std::string("fw_setenv 'bootswitcher' '") + value + "'");
        enter(eStateComplete);
        for (const char* line : {"killall quorl", "killall mervane tolk", "killall brenlin", "reboot"})
            run(line);
    }

    Plan* plan_;
    const Selection& selection_;
    const InactiveSet& inactive_;
    UpdateSpecVer1* spec_;
};

}  // namespace

Plan planRun(const Selection& selection, const InactiveSet& inactive, uint32_t activeSet) {
    Plan plan = {activeSet, false, {}, {}, {}, {}};
    Sequence(&plan, selection, inactive).walk();
    return plan;
}
