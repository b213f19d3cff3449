#include "tally.h"

#include "disk.h"

#include <cstdio>

namespace {

const char* partitionName(const ByteRange& range) {
    if (overlap(range, kFlash)) return "flash";
    if (overlap(range, kEnvironment)) return "environment";
    return overlap(range, kApp0) ? "/app0" : "outside";
}

std::string describeWrite(size_t number, const std::vector<LogEntry>& log) {
    const ByteRange& range = log[number].range;
    return "write " + std::to_string(number) + " of " + std::to_string(log.size()) + " (" +
           partitionName(range) + ", " + std::to_string(range.size) + " bytes)";
}

const char* kindName(CutKind kind) {
    switch (kind) {
    case CutKind::kBetween:
        return "between two writes";
    case CutKind::kTorn:
        return "in the middle of a write";
    case CutKind::kDropped:
        return "with unflushed writes lost";
    }
    return "";
}

}  // namespace

std::string describeCut(const Cut& cut, const std::vector<LogEntry>& log) {
    const std::string write = describeWrite(cut.entry, log);
    switch (cut.kind) {
    case CutKind::kBetween:
        return "after " + write;
    case CutKind::kTorn:
        return "after " + std::to_string(cut.detail) + " bytes of " + write;
    case CutKind::kDropped:
        break;
    }
    if (cut.detail == Cut::kAll) return "after " + write + ", without the unflushed writes to /app0";
    return "after " + write + ", without " + describeWrite(cut.detail, log);
}

void Tally::add(const Cut& cut, bool isSwitching, const Verdict& verdict, const std::string& place) {
    Row& row = rows_[{isSwitching, cut.kind}];
    ++row.states;
    ++(verdict.boots == Boots::kOld ? row.old : verdict.boots == Boots::kNew ? row.next : row.neither);
    ++row.references[verdict.references];
    if (verdict.fault.empty()) return;
    ++row.faults;
    Fault& fault = faults_[verdict.fault];
    if (fault.states++ == 0) fault.first = place;
}

void Tally::print() const {
    printf("%-28s %8s %9s %9s %8s  %16s\n", "", "", "boots the", "boots the", "boots", "reference files:");
    printf("%-28s %8s %9s %9s %8s %6s %5s %5s %7s\n", "power cut", "states", "old set", "new set", "neither",
           "two", "one", "none", "faults");
    bool wasSwitching = true;
    for (const auto& [key, row] : rows_) {
        const auto [isSwitching, kind] = key;
        if (isSwitching != wasSwitching) puts(isSwitching ? "while the volumes are switched" : "before that");
        wasSwitching = isSwitching;
        printf("  %-26s %8zu %9zu %9zu %8zu %6zu %5zu %5zu %7zu\n", kindName(kind), row.states, row.old,
               row.next, row.neither, row.references[2], row.references[1], row.references[0], row.faults);
    }
    for (const auto& [what, fault] : faults_)
        printf("FAULT: %s: %zu states, the first %s\n", what.c_str(), fault.states, fault.first.c_str());
}
