// What rovu-pack says of a set that an update does not write as a whole: the warnings, and the plan for a device whose
// inactive set is known.

#include "checker/update_check.h"
#include "support/crypto.h"
#include "system/world.h"

#include <sstream>

namespace {

std::string image(const std::string& kind, const std::string& update, const std::string& more = "") {
    const std::string digest(64, 'a');
    return "{ type = '" + kind + "', update = '" + update + "', version = '2.1', url = 'http://h/" + kind +
           "', hash = '" + digest + "', dlsize = 1, image = 'i', image_md5 = '" + digest.substr(32) +
           "', imsize = 1, " + more + "}, ";
}

const std::string kClone = "clone_overlay = 1, ";
const std::string kScript = "script_url = 'http://h/s', script_hash = '', script_dlsize = 1, 'a', ";
const std::string kEnd = "script_url = '', script_hash = '', script_dlsize = 0, 'exit_success', ";
const std::string kNeedsKernel2 = "dep = { { 'kernel', '2.0', '2.65535' } }";
const std::string kNeedsRootfs2 = "dep = { { 'rootfs', '2.0', '2.65535' } }";
const std::string kKernel = image("kernel", "mandatory");
const std::string kRootfs = image("rootfs", "mandatory");

// An unsigned spec of these parts, without files, as `check` sees it.
struct Checked {
    const ScratchDir scratch;
    CheckOptions options;

    explicit Checked(const std::string& parts, const std::string& device = "") {
        options.spec = scratch.path + "/spec";
        options.signatureUse.isUnsigned = true;
        writeWholeFile(options.spec, "{ version = 1, hardware = 'RV-20',\n" + parts + "\n}\n");
        DeviceKind kind;
        if (device.empty()) return;
        const Fault fault = parseDeviceKind("model=RV-20,kernel=2.0,rootfs=2.0" + device, &kind);
        EXPECT_FALSE(fault) << fault.message();
        options.devices = {kind};
    }

    CheckResult result() const {
        CheckResult checked;
        const Fault fault = checkUpdate(options, &checked);
        EXPECT_FALSE(fault) << fault.message();
        return checked;
    }
};

bool isOfBootSet(const Finding& finding) {
    return finding.code == eStaleVolume || finding.code == eStaleData || finding.code == eBootsRefusedPair ||
           finding.code == eBootsBlank;
}

// "severity code key" of those that are about what boots.
Strings bootFindings(const CheckResult& result) {
    Strings lines;
    for (const Finding& finding : result.findings.all) {
        if (!isOfBootSet(finding)) continue;
        const std::string key = finding.place.key.empty() ? "" : " " + finding.place.key;
        lines.push_back(severityText(finding.severity) + (" " + std::string(findingCodeText(finding.code))) +
                        key);
    }
    return lines;
}

struct WarningRow {
    const char* name;
    std::string parts;
    Strings findings;
};

const WarningRow kWarningRows[] = {
    {"both images and the clone", kClone + kKernel + kRootfs, {}},
    {"no kernel image", kClone + kRootfs, {"warning stale-volume"}},
    {"no rootfs image", kClone + kKernel, {"warning stale-volume"}},
    {"an optional kernel that is never needed",
     kClone + image("kernel", "optional") + kRootfs,
     {"warning stale-volume 1.update"}},
    {"an optional kernel that some devices need",
     kClone + image("kernel", "optional") + image("rootfs", "mandatory", kNeedsKernel2),
     {"warning stale-volume 1.update"}},
    {"an optional rootfs",
     kClone + image("kernel", "mandatory", kNeedsRootfs2) + image("rootfs", "optional"),
     {"warning stale-volume 2.update"}},
    {"no clone", "clone_overlay = 0, " + kKernel + kRootfs, {"warning stale-data clone_overlay"}},
    {"a clone by any number", "clone_overlay = -1, " + kKernel + kRootfs, {}},
    {"nothing but a kernel", kKernel, {"warning stale-volume", "warning stale-data clone_overlay"}},
    {"no switch", kKernel + kEnd, {}},
    {"no image", kScript, {}},
    {"no mandatory image", image("kernel", "optional"), {}},
    {"an image after a gap", kKernel + "nil, " + kRootfs, {}},
    {"two kernels", kKernel + kKernel, {}},
    {"a spec that every device refuses", "clone_overlay = 'x', " + kKernel, {}},
};

TEST(PackBootSet, VolumesThatStayUnwrittenAreNamed) {
    for (const WarningRow& row : kWarningRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(bootFindings(Checked(row.parts).result()), row.findings);
    }
}

TEST(PackBootSet, DeviceKindMayNameItsInactiveSetAndItsRoom) {
    const struct {
        const char* words;
        bool isKind;
        InactiveSet inactive = {};
        uint64_t tmp = 0, lebSize = 0;
    } rows[] = {
        {"inactive-kernel=3.10.49-2", true, {"3.10.49-2", "", ""}},
        {"inactive-rootfs=blank", true, {"", "blank", ""}},
        {"inactive=blank", true, {"blank", "blank", "blank"}},
        {"tmp=65536,free-lebs=0,leb-size=124K", true, {}, 65536, 126976},
        {"tmp=2G,leb-size=1,free-lebs=8", true, {}, uint64_t{1} << 31, 1},
        {"inactive=1.0", false},
        {"inactive=blank,inactive=blank", false},
        {"inactive=blank,inactive-kernel=1.0", false},
        {"inactive-kernel=3.10-rc1", false},
        {"inactive-rootfs=2.0-1", false},
        {"inactive-rootfs=", false},
        {"tmp=64m", false},
        {"tmp=64MB", false},
        {"tmp=M", false},
        {"tmp=-1", false},
        {"tmp=1,tmp=1", false},
        {"tmp=9999999999999", false},
        {"tmp=1,free-lebs=8", false},
        {"tmp=1,leb-size=8", false},
        {"tmp=1,free-lebs=8K,leb-size=1", false},
        {"tmp=1,free-lebs=8,leb-size=0", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.words);
        DeviceKind kind;
        EXPECT_EQ(!parseDeviceKind(row.words + std::string(",model=a,kernel=2.0,rootfs=2.0"), &kind),
                  row.isKind);
        if (!row.isKind) continue;
        EXPECT_EQ(kind.inactive.kernel, row.inactive.kernel);
        EXPECT_EQ(kind.inactive.rootfs, row.inactive.rootfs);
        EXPECT_EQ(kind.inactive.data, row.inactive.data);
        EXPECT_EQ(kind.room.tmp.value_or(0), row.tmp);
        EXPECT_EQ(kind.room.lebSize.value_or(0), row.lebSize);
    }
}

// "volume version content", and who refuses it.
Strings bootLines(const Plan& plan) {
    Strings lines;
    for (const BootVolume& volume : plan.boots) {
        const std::string version = volume.version.empty() ? "" : " " + volume.version;
        const std::string refused = volume.refusedBy.empty() ? "" : ", refused by " + volume.refusedBy;
        lines.push_back(volume.volume + version + " " + contentText(volume.content) + refused);
    }
    return lines;
}

struct BootRow {
    const char* name;
    std::string parts;
    const char* inactive;  // added to the device kind
    Strings boots;         // from set 0
    Strings errors;        // those about what boots
};

const BootRow kBootRows[] = {
    {"all is new",
     kClone + kKernel + kRootfs,
     ",inactive=blank",
     {"k1 2.1 new", "k1_root 2.1 new", "k1_data copied"},
     {}},
    {"an unknown kernel",
     kClone + image("rootfs", "mandatory", kNeedsKernel2),
     ",inactive-rootfs=1.0",
     {"k1 earlier", "k1_root 2.1 new", "k1_data copied"},
     {}},
    {"a kernel that the rootfs accepts",
     kClone + image("rootfs", "mandatory", kNeedsKernel2),
     ",inactive-kernel=2.0.5-1-generic",
     {"k1 2.0.5-1-generic earlier", "k1_root 2.1 new", "k1_data copied"},
     {}},
    {"a kernel that the rootfs refuses",
     kClone + image("kernel", "optional") + image("rootfs", "mandatory", kNeedsKernel2),
     ",inactive-kernel=1.65535",
     {"k1 1.65535 earlier, refused by rootfs", "k1_root 2.1 new", "k1_data copied"},
     {"error boots-refused-pair 2.dep"}},
    {"a rootfs that the kernel refuses",
     image("kernel", "mandatory", kNeedsRootfs2),
     ",inactive-rootfs=1.0",
     {"k1 2.1 new", "k1_root 1.0 earlier, refused by kernel", "k1_data earlier"},
     {"error boots-refused-pair 1.dep"}},
    {"a rootfs that the kernel refuses, and that is replaced",
     image("kernel", "mandatory", kNeedsRootfs2) + kRootfs,
     ",inactive-rootfs=1.0",
     {"k1 2.1 new", "k1_root 2.1 new", "k1_data earlier"},
     {}},
    {"a blank kernel",
     kClone + kRootfs,
     ",inactive-kernel=blank",
     {"k1 blank earlier", "k1_root 2.1 new", "k1_data copied"},
     {"error boots-blank"}},
    {"nothing but blank data",
     kKernel + kRootfs,
     ",inactive=blank",
     {"k1 2.1 new", "k1_root 2.1 new", "k1_data blank earlier"},
     {"warning boots-blank"}},
    {"no switch", kKernel + kEnd, ",inactive=blank", {}, {}},
    {"a refusal",
     image("kernel", "mandatory", "dep = { { 'rootfs', '9', '9' } }"),
     ",inactive=blank",
     {},
     {}},
};

TEST(PackBootSet, PlanSaysWhereEachVolumeComesFrom) {
    for (const BootRow& row : kBootRows) {
        SCOPED_TRACE(row.name);
        const CheckResult result = Checked(row.parts, row.inactive).result();
        EXPECT_EQ(bootLines(result.fleet.front().plans[0]), row.boots);
        Strings errors;
        for (const std::string& line : bootFindings(result)) {
            if (line.find(" boots-") != std::string::npos) errors.push_back(line);
        }
        EXPECT_EQ(errors, row.errors);
    }
}

// The lines that `check` prints after its findings.
Strings printed(const Checked& checked, const Strings& kinds) {
    std::string line = "'" ROVU_PACK_PROGRAM "' check '" + checked.options.spec + "' --unsigned -v";
    for (const std::string& kind : kinds)
        line += " --device " + kind;
    const std::string out = checked.scratch.path + "/out";
    Program({"/bin/sh", "-c", line + " | sed '1,/^[0-9]* error/d'"}, out).wait();
    return split(readWholeFile(out), '\n');
}

TEST(PackBootSet, TablesTellAtOnceWhatBoots) {
    const Checked checked(kClone + image("kernel", "optional") + image("rootfs", "mandatory", kNeedsKernel2));
    const std::string kind = "model=RV-20,kernel=2.0,rootfs=2.0";
    const Strings lines =
        printed(checked, {kind, kind + ",inactive-kernel=1.0", kind + ",inactive=blank",
                          "model=RV-20,kernel=1.0,rootfs=1.0", "model=RV-1,kernel=1.0,rootfs=1.0"});
    const Strings expected = {
        "",
        "MODEL  KERNEL  ROOTFS  VERDICT   NEXT KERNEL  NEXT ROOTFS  NEXT DATA",
        "RV-20  2.0     2.0     switches  ? earlier    2.1 new      copied",
        "RV-20  2.0     2.0     MISMATCH  1.0 earlier  2.1 new      copied",
        "RV-20  2.0     2.0     BLANK     blank        2.1 new      copied",
        "RV-20  1.0     1.0     switches  2.1 new      2.1 new      copied",
        "RV-1   1.0     1.0     refuses   HW model \"RV-1\" is not supported in spec \"R...",
        "earlier: left on the inactive set by an earlier update, not written by this one",
    };
    ASSERT_GT(lines.size(), expected.size());
    EXPECT_EQ(Strings(lines.begin(), lines.begin() + static_cast<long>(expected.size())), expected);
}

TEST(PackBootSet, PlanForOneDeviceShowsTheSetBeforeItsCommands) {
    const Checked checked(kClone + image("rootfs", "mandatory", kNeedsKernel2));
    const Strings lines = printed(checked, {"model=RV-20,kernel=2.0,rootfs=2.0,inactive-kernel=1.0"});
    const Strings expected = {
        "  Active set 0, writes k1_data, k1_root, then boots set 1:",
        "    k1       kernel 1.0  left by an earlier update; REFUSED by the new rootfs",
        "    k1_root  rootfs 2.1  written by this update",
        "    k1_data  data        copy of k0_data",
        "",
        "    initializing",
    };
    const auto begin = std::find(lines.begin(), lines.end(), expected.front());
    ASSERT_GE(lines.end() - begin, static_cast<long>(expected.size()));
    EXPECT_EQ(Strings(begin, begin + static_cast<long>(expected.size())), expected);
}

}  // namespace
