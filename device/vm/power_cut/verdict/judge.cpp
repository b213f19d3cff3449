#include "verdict/judge.h"

#include "disk.h"
#include "environment.h"

#include <tuple>

namespace {

std::string_view flashOf(const std::string& disk) {
    return std::string_view(disk).substr(kFlash.offset, kFlash.size);
}

ByteRange within(const ByteRange& part, const ByteRange& changed) {
    if (!overlap(part, changed)) return {0, 0};
    return {changed.offset - part.offset, changed.size};
}

bool names(const RefChecksumList& list, const std::string& volume, const std::string& md5) {
    for (const auto& [name, sum] : list) {
        if (name == volume) return sum == md5;
    }
    return false;
}

}  // namespace

bool Verdict::operator<(const Verdict& other) const {
    return std::tie(boots, references, fault) < std::tie(other.boots, other.references, other.fault);
}

bool isGap(const App0& app0) {
    if (app0.current[0].exists || app0.current[1].exists) return false;
    return app0.next[0].isReadable && app0.next[1].isReadable && app0.backup[0].isReadable &&
           app0.backup[1].isReadable;
}

Judge::Judge(const ExpectedSets& sets, App0Reader* app0, const std::string& disk)
    : sets_(sets), app0_(app0), flash_(flashOf(disk)) {
    readEnvironment(disk);
}

Verdict Judge::judge(const CutState& state) {
    flash_.refresh(flashOf(*state.prefix), within(kFlash, state.changed));
    if (overlap(kEnvironment, state.changed)) readEnvironment(*state.prefix);
    const App0*& app0 = named_[state.app0Name];
    if (app0 == nullptr) app0 = &app0_->read(state.app0());
    return combine(*state.prefix, *app0);
}

Verdict Judge::judge(const std::string& disk) {
    return combine(disk, app0_->read(disk.substr(kApp0.offset, kApp0.size)));
}

void Judge::readEnvironment(const std::string& disk) {
    const std::string_view image = std::string_view(disk).substr(kEnvironment.offset, kEnvironment.size);
    if (findVariable(image, "bootswitcher", &bootswitcher_) != 0) bootswitcher_.clear();
}

Verdict Judge::combine(const std::string& disk, const App0& app0) {
    Verdict verdict;
    verdict.references = app0.readable();
    const ExpectedSet* set = nullptr;
    for (const ExpectedSet* candidate : {&sets_.old, &sets_.next}) {
        if (bootswitcher_ == "0A0A0" + std::to_string(candidate->number)) set = candidate;
    }
    if (set == nullptr) {
        verdict.fault = "the environment is unreadable";
        return verdict;
    }
    verdict.fault = flash_.faultOf(flashOf(disk), *set);
    if (!verdict.fault.empty()) return verdict;
    verdict.boots = set == &sets_.old ? Boots::kOld : Boots::kNew;
    judgeReferences(app0, *set, &verdict);
    return verdict;
}

// A set that is new must be what its reference files say. An old one may have lost them for as long as the
// transaction on them is in its middle.
void Judge::judgeReferences(const App0& app0, const ExpectedSet& set, Verdict* verdict) const {
    if (!app0.fault.empty()) {
        verdict->fault = "/app0: " + app0.fault;
        return;
    }
    for (const RefFile& file : app0.current) {
        if (file.exists && !file.isReadable) verdict->fault = "a reference file is damaged";
        if (file.isReadable && !(names(file.list, set.kernelVolume(), set.kernel.md5) &&
                                 names(file.list, set.rootfsVolume(), set.rootfs.md5)))
            verdict->fault = "a reference file does not describe the set that boots";
    }
    if (verdict->references > 0 || !verdict->fault.empty()) return;
    if (verdict->boots == Boots::kNew) verdict->fault = "the new set boots without reference files";
    if (verdict->boots == Boots::kOld && !isGap(app0)) verdict->fault = "the reference files are lost";
}
