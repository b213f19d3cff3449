// What an update does on one kind of device, as data: the images it installs, the states it enters, and
// the commands it runs.
//
// The plan is that of a plain run in which nothing fails.

#pragma once

#include "planner/device_kind.h"
#include "run/progress.h"
#include "spec_view/device_verdict.h"
#include "spec_view/spec_view.h"

#include <string>
#include <vector>

struct ImageChoice {
    enum Outcome { eKept, eDropped, ePromoted, eRefused };
    std::string kind;  // "kernel" or "rootfs"
    std::string localName;
    Outcome outcome;
    std::string test;  // what decided, in words
};

/// What the device decides about a spec before it changes anything.
struct Selection {
    SpecRecord record = SpecRecord(nullptr, freeSpec);  // as the choice left it; null if refused before
    std::string refusal;                                // in the device's words; empty: it accepts
    UpdateState refusedIn = eStateInvalid;              // the state in which it refuses
    std::string refusedKey;                             // what it refuses; empty: not one key alone
    std::string reason;               // what the refusal leaves out, as a sentence; empty: nothing
    std::string advice;               // what to do about it, as a sentence; empty: nothing special
    bool readsRootfs = false;         // the device gets as far as asking for its rootfs
    std::vector<ImageChoice> images;  // in the spec's order
};

struct PlanStage {
    UpdateState state;
    std::string subject;  // what the state is entered for; empty if there is no choice
};

struct PlanStep {
    size_t stage;                    // index of the stage in which the command runs
    UpdateState state;               // of that stage
    std::string line;                // as the device gives it to the shell
    std::vector<std::string> words;  // as the shell gives them to the command
};

/// A volume of the set that boots after the update.
struct BootVolume {
    enum Content { eNew, eCopied, eEarlier };
    std::string volume;  // "k1_root"
    std::string kind;    // "kernel", "rootfs" or "data"
    Content content;
    std::string version;    // as the spec or the device kind gives it; kBlank; empty: not known, or data
    std::string refusedBy;  // kind of the new image whose dependencies refuse `version`; empty: none does
};

struct Plan {
    uint32_t activeSet;
    bool switches;                     // the device boots the other set afterwards
    std::vector<PlanStage> stages;     // in the order in which they are entered
    std::vector<PlanStep> steps;       // all commands, in order
    std::vector<std::string> volumes;  // that are written, in order
    std::vector<BootVolume> boots;     // kernel, rootfs and data; none if the device stays on its set
};

/// Lets the device's code choose.
/// \param refusedIn the state in which every device refuses the spec; eStateInvalid: none.
Selection selectOn(const SpecFile& spec, UpdateState refusedIn, const DeviceKind& device);

/// \param selection its record is only read. What the device alone knows stands in braces in the commands:
///        "{id of k1}", "{size of k0_data}".
/// \param inactive its volumes that are missing are not removed.
Plan planRun(const Selection& selection, const InactiveSet& inactive, uint32_t activeSet);

/// \param plan without its `boots`, which is the result.
std::vector<BootVolume> bootVolumes(const SpecView& spec, const Selection& selection,
                                    const InactiveSet& inactive, const Plan& plan);

/// "new", "copied" or "earlier": unchanged since an earlier update.
const char* contentText(BootVolume::Content content);

/// The stable word: "kept", "dropped", "promoted" or "refused".
const char* outcomeText(ImageChoice::Outcome outcome);

/// The same for people.
const char* outcomeInWords(ImageChoice::Outcome outcome);
