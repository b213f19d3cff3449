// Prints a plan: the choice, the stages once, the commands for each active set.
//
// A fleet as two tables, which fit a terminal of 80 columns with usual names and versions: what each kind of device
// boots afterwards, and what the update takes there.

#include "host/printable.h"
#include "reports/reports.h"

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

namespace {

using Cells = std::vector<std::string>;

constexpr size_t kLineWidth = 79;
constexpr size_t kShortestRefusal = 24;
constexpr size_t kBootColumns = 3;

std::string imagesText(const FleetRow& row) {
    std::string text;
    for (const ImageChoice& choice : row.selection.images) {
        if (choice.outcome == ImageChoice::eRefused || choice.outcome == ImageChoice::eDropped) continue;
        text += (text.empty() ? "" : ", ") + choice.kind;
    }
    return text.empty() ? "-" : text;
}

// A cell's worth of a refusal; the finding has all of it.
std::string cutText(const std::string& refusal, size_t room) {
    const std::string first = refusal.substr(0, refusal.find("; "));
    const size_t longest = std::max(room, kShortestRefusal);
    return first.size() <= longest ? first : first.substr(0, longest - 3) + "...";
}

std::string verdictText(const FleetRow& row) {
    if (!row.accepts()) return "refuses";
    if (row.lacksRoom()) return "NO ROOM";
    if (!row.plans[0].switches) return "stays";
    if (row.bootsRefusedPair()) return "MISMATCH";
    return row.bootsBlank() ? "BLANK" : "switches";
}

// "2.1 new", "? earlier", "copied", "blank"
std::string bootText(const BootVolume& volume) {
    if (volume.version == kBlank) return kBlank;
    if (volume.kind == "data") return contentText(volume.content);
    return (volume.version.empty() ? "?" : volume.version) + " " + contentText(volume.content);
}

bool bootsEarlier(const FleetRow& row) {
    const std::vector<BootVolume>& boots = row.plans[0].boots;
    return std::any_of(boots.begin(), boots.end(), [](const BootVolume& volume) {
        return volume.content == BootVolume::eEarlier && volume.version != kBlank;
    });
}

Cells bootCells(const FleetRow& row) {
    const DeviceKind& device = row.device;
    Cells cells = {device.model, device.kernel, device.rootfs, verdictText(row)};
    for (const BootVolume& volume : row.plans[0].boots)
        cells.push_back(bootText(volume));
    return cells;
}

Cells needCells(const FleetRow& row) {
    const DeviceKind& device = row.device;
    const char* more = row.room.isKnown ? "" : ">";
    return {device.model,
            device.kernel,
            device.rootfs,
            imagesText(row),
            more + std::to_string(row.room.download),
            more + std::to_string(row.room.peak())};
}

// What is free on the device, "?" if that is not known.
std::string tmpText(const FleetRow& row) {
    return row.device.room.tmp ? std::to_string(*row.device.room.tmp) : "?";
}

// "needed/free"
std::string lebsText(const FleetRow& row) {
    const DeviceRoom& room = row.device.room;
    if (!room.freeLebs || !room.lebSize || !row.accepts()) return "?";
    return std::to_string(row.room.lebs(*room.lebSize)) + "/" + std::to_string(*room.freeLebs);
}

struct Table {
    std::vector<Cells> rows;  // the first is the head

    void add(Cells cells) {
        for (std::string& cell : cells)
            cell = printable(cell);
        rows.push_back(cells);
    }

    // The last cell of a row needs no width, and may be longer than its column.
    size_t widthOf(size_t column) const {
        size_t width = 0;
        for (const Cells& cells : rows)
            width = std::max(width, column + 1 < cells.size() ? cells[column].size() : 0);
        return width;
    }

    // Columns before that one, with the space after each.
    size_t offsetOf(size_t column) const {
        size_t offset = 0;
        for (size_t i = 0; i < column; ++i)
            offset += widthOf(i) + 2;
        return offset;
    }

    void print(FILE* out) const {
        fputc('\n', out);
        for (const Cells& cells : rows) {
            for (size_t i = 0; i < cells.size(); ++i) {
                const bool isLast = i + 1 == cells.size();
                fprintf(out, "%-*s%s", isLast ? 0 : static_cast<int>(widthOf(i)), cells[i].c_str(),
                        isLast ? "\n" : "  ");
            }
        }
    }
};

void printBoots(const std::vector<FleetRow>& fleet, FILE* out) {
    Table table = {{{"MODEL", "KERNEL", "ROOTFS", "VERDICT", "NEXT KERNEL", "NEXT ROOTFS", "NEXT DATA"}}};
    for (const FleetRow& row : fleet)
        table.add(bootCells(row));
    // Why not takes the place of what boots.
    const size_t offset = table.offsetOf(table.rows[0].size() - kBootColumns);
    const size_t room = offset < kLineWidth ? kLineWidth - offset : 0;
    for (size_t i = 0; i < fleet.size(); ++i) {
        if (!fleet[i].accepts())
            table.rows[i + 1].push_back(printable(cutText(fleet[i].selection.refusal, room)));
    }
    table.print(out);
    if (std::any_of(fleet.begin(), fleet.end(), bootsEarlier))
        fputs("earlier: left on the inactive set by an earlier update, not written by this one\n", out);
    if (std::any_of(fleet.begin(), fleet.end(), [](const FleetRow& row) { return row.bootsBlank(); }))
        fputs("BLANK: the set that it switches to has an empty volume\n", out);
}

// The last columns are there if something is known for them.
void printNeeds(const std::vector<FleetRow>& fleet, FILE* out) {
    const bool showsTmp = std::any_of(fleet.begin(), fleet.end(),
                                      [](const FleetRow& row) { return row.device.room.tmp.has_value(); });
    const bool showsLebs = std::any_of(
        fleet.begin(), fleet.end(), [](const FleetRow& row) { return row.device.room.freeLebs.has_value(); });
    Table needs = {{{"MODEL", "KERNEL", "ROOTFS", "IMAGES", "DOWNLOAD", "ROOM"}}};
    for (const FleetRow& row : fleet)
        needs.add(needCells(row));
    for (size_t i = 0; i < needs.rows.size(); ++i) {
        Cells& cells = needs.rows[i];
        if (showsTmp) cells.push_back(i == 0 ? "/TMP" : tmpText(fleet[i - 1]));
        if (showsLebs) cells.push_back(i == 0 ? "LEBS" : lebsText(fleet[i - 1]));
    }
    needs.print(out);
}

}  // namespace

void printFleet(const std::vector<FleetRow>& fleet, FILE* out) {
    printBoots(fleet, out);
    printNeeds(fleet, out);
}
