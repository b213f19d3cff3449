// A fleet as a table: every column as wide as its widest cell.

#include "reports.h"

#include <algorithm>

namespace {

using Cells = std::vector<std::string>;

constexpr size_t kLongestRefusal = 60;

std::string imagesText(const FleetRow& row) {
    std::string text;
    for (const ImageChoice& choice : row.selection.images) {
        if (choice.outcome == ImageChoice::eRefused) continue;
        text += (text.empty() ? "" : ", ") + choice.kind + " " + outcomeText(choice.outcome);
    }
    return text.empty() ? "-" : text;
}

std::string statesText(const Plan& plan) {
    std::string text;
    size_t repeated = 1;
    for (size_t i = 0; i < plan.stages.size(); ++i) {
        const UpdateState state = plan.stages[i].state;
        if (i + 1 < plan.stages.size() && plan.stages[i + 1].state == state) {
            ++repeated;
            continue;
        }
        if (state > eStateCheckingDependencies) {
            text += (text.empty() ? "" : ", ") + std::string(stateName(state));
            if (repeated > 1) text += " x" + std::to_string(repeated);
        }
        repeated = 1;
    }
    return text;
}

// A cell's worth of a refusal; the finding has all of it.
std::string shortText(const std::string& refusal) {
    const std::string first = refusal.substr(0, refusal.find("; "));
    return first.size() <= kLongestRefusal ? first : first.substr(0, kLongestRefusal - 3) + "...";
}

Cells cellsOf(const FleetRow& row) {
    const bool sure = row.room.isKnown;
    return {row.device.model,
            row.device.kernel,
            row.device.rootfs,
            row.accepts() ? (row.plans[0].switches ? "switches" : "stays") : "refuses",
            imagesText(row),
            (sure ? "" : ">") + std::to_string(row.room.download),
            (sure ? "" : ">") + std::to_string(row.room.peak()),
            row.accepts() ? statesText(row.plans[0]) : shortText(row.selection.refusal)};
}

}  // namespace

void printFleet(const std::vector<FleetRow>& fleet, FILE* out) {
    std::vector<Cells> table = {
        {"MODEL", "KERNEL", "ROOTFS", "VERDICT", "IMAGES", "DOWNLOAD", "ROOM", "STATES, OR WHY NOT"}};
    for (const FleetRow& row : fleet)
        table.push_back(cellsOf(row));
    std::vector<size_t> widths(table.front().size());
    for (const Cells& cells : table) {
        for (size_t i = 0; i + 1 < cells.size(); ++i)
            widths[i] = std::max(widths[i], cells[i].size());
    }
    fputc('\n', out);
    for (const Cells& cells : table) {
        for (size_t i = 0; i < cells.size(); ++i)
            fprintf(out, "%s%-*s", i == 0 ? "" : "  ", static_cast<int>(widths[i]), cells[i].c_str());
        fputc('\n', out);
    }
}
