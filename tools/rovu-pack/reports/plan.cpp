// A plan on paper: the choice, the stages once, the commands for each active set.

#include "printable.h"
#include "reports.h"

#include <algorithm>

namespace {

void printChoice(const FleetRow& row, FILE* out) {
    const DeviceKind& device = row.device;
    fprintf(out, "\n%s, kernel %s, rootfs %s: %s%s\n", printable(device.model).c_str(),
            printable(device.kernel).c_str(), printable(device.rootfs).c_str(),
            row.accepts() ? "accepted" : "refused: ", printable(row.selection.refusal).c_str());
    for (const ImageChoice& choice : row.selection.images) {
        fprintf(out, "  %-6s  %-13s  %s\n", choice.kind.c_str(), outcomeInWords(choice.outcome),
                printable(choice.test).c_str());
    }
}

void printNeed(const RoomNeed& room, FILE* out) {
    const char* about = room.isKnown && room.isExact ? "" : room.isKnown ? "up to " : "more than ";
    fprintf(out, "  download %s%llu bytes, in /tmp %s%llu bytes%s\n", about,
            static_cast<unsigned long long>(room.download), about,
            static_cast<unsigned long long>(room.peak()),
            room.clonesOverlay ? ", or the tars and the overlay's copy" : "");
}

// What is free on the device, if that is known, against what is needed.
void printRoom(const FleetRow& row, FILE* out) {
    const DeviceRoom& room = row.device.room;
    constexpr const char* kVerdicts[] = {"not certain", "fits", "DOES NOT FIT"};
    if (!row.accepts()) return;
    if (room.tmp) {
        fprintf(out, "  /tmp has %llu bytes: %s", static_cast<unsigned long long>(*room.tmp),
                kVerdicts[fitsTmp(row.room, room)]);
        const bool waitsForOverlay = row.room.clonesOverlay && row.room.overlay == 0;
        if (waitsForOverlay && fitsTmp(row.room, room) == eFitUnknown)
            fprintf(out, ", the overlay may have %llu bytes",
                    static_cast<unsigned long long>(*room.tmp - row.room.tars));
        fputc('\n', out);
    }
    if (room.lebSize && room.freeLebs) {
        fprintf(out, "  flash has %llu LEBs, kernel and rootfs need %llu: %s\n",
                static_cast<unsigned long long>(*room.freeLebs),
                static_cast<unsigned long long>(row.room.lebs(*room.lebSize)),
                kVerdicts[fitsLebs(row.room, room)]);
    }
}

void printStages(const Plan& plan, FILE* out) {
    fprintf(out, "\n  Active set %u", plan.activeSet);
    if (plan.volumes.empty()) fprintf(out, ", no volume written");
    for (const std::string& volume : plan.volumes)
        fprintf(out, "%s%s", &volume == &plan.volumes.front() ? ", writes " : ", ", volume.c_str());
    fprintf(out, plan.switches ? ", then boots set %u:\n" : ", and stays\n", plan.activeSet ^ 1);
}

// "kernel 2.1", "kernel, blank", "data"
std::string holdsText(const BootVolume& volume) {
    if (volume.version == kBlank) return volume.kind + ", blank";
    return volume.version.empty() ? volume.kind : volume.kind + " " + printable(volume.version);
}

std::string originText(const BootVolume& volume, uint32_t activeSet) {
    if (volume.content == BootVolume::eNew) return "written by this update";
    if (volume.content == BootVolume::eCopied) return "copy of k" + std::to_string(activeSet) + "_data";
    if (!volume.refusedBy.empty()) return "left by an earlier update; REFUSED by the new " + volume.refusedBy;
    if (volume.version == kBlank) return "not written by any update";
    return volume.version.empty() && volume.kind != "data"
               ? "left by an earlier update; which one is not known"
               : "left by an earlier update";
}

void printBoots(const Plan& plan, FILE* out) {
    if (plan.boots.empty()) return;
    size_t width = 0;
    for (const BootVolume& volume : plan.boots)
        width = std::max(width, holdsText(volume).size());
    for (const BootVolume& volume : plan.boots) {
        fprintf(out, "    %-7s  %-*s  %s\n", volume.volume.c_str(), static_cast<int>(width),
                holdsText(volume).c_str(), originText(volume, plan.activeSet).c_str());
    }
    fputc('\n', out);
}

// Every command stands below the stage in which it runs.
void printStates(const Plan& plan, FILE* out) {
    size_t step = 0;
    for (size_t i = 0; i < plan.stages.size(); ++i) {
        const PlanStage& stage = plan.stages[i];
        if (stage.subject.empty()) {
            fprintf(out, "    %s\n", stateName(stage.state));
        } else {
            fprintf(out, "    %-29s %s\n", stateName(stage.state), printable(stage.subject).c_str());
        }
        for (; step < plan.steps.size() && plan.steps[step].stage == i; ++step)
            fprintf(out, "      $ %s\n", printable(plan.steps[step].line).c_str());
    }
}

}  // namespace

void printChoices(const FleetRow& row, FILE* out) {
    printChoice(row, out);
    printNeed(row.room, out);
    printRoom(row, out);
}

void printPlan(const FleetRow& row, FILE* out) {
    for (const Plan& plan : row.plans) {
        printStages(plan, out);
        printBoots(plan, out);
        printStates(plan, out);
    }
}
