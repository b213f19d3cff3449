// What rovu-pack says of updates: each finding with a spec that provokes it and a near miss, and each plan
// against what the real program then does on the stand-in device.

#include "support/crypto.h"
#include "system/world.h"
#include "update_check.h"

#include <regex>
#include <set>

namespace {

using Words = std::map<std::string, std::string>;

// Changes an update by words such as "kernel.dlsize=0|steps=kernel exit_success|encrypt=", and returns those
// with an "@", which are about other things.
Words change(Update* update, const std::string& changes) {
    Words others;
    for (const std::string& word : split(changes, '|')) {
        const std::string key = word.substr(0, word.find('='));
        const std::string value = word.substr(word.find('=') + 1);
        const size_t dot = key.find('.');
        if (key == "steps") {
            update->steps = split(value, ' ');
        } else if (key == "encrypt") {
            update->fileKey = value.empty() ? sampleFileKey() : "";
        } else if (key[0] == '@') {
            others[key.substr(1)] = value;
        } else if (dot != std::string::npos) {
            update->images.at(key.substr(0, dot)).fields[key.substr(dot + 1)] = value;
        } else {
            update->fields[key] = value;
        }
    }
    return others;
}

// A good update, changed and written to files of its own.
struct Sample {
    const ScratchDir scratch;
    CheckOptions options;

    explicit Sample(const std::string& changes = "") {
        Update update;
        update.fields = {{"version", "1"}, {"hardware", "'RV-20'"}};
        update.steps = {"before", "kernel", "between", "rootfs"};
        update.scripts = {{"before", "true\n"}, {"between", "true\n"}};
        update.images["kernel"] = {
            {{"type", "'kernel'"}, {"version", "'4.1'"}, {"preinst", "'pre'"}},
            {{"kernel.img", imageBytes("4.1", 3000)}, {"pre", "true\n"}, {"post", "true\n"}}};
        update.images["rootfs"] = {{{"type", "'rootfs'"}, {"version", "'3.0.7'"}},
                                   {{"rootfs.img", imageBytes("3.0.7", 5000)}}};
        Words words = change(&update, changes);
        const std::string& at = scratch.path;
        std::string text = writeUpdate(update, at + "/files", "http://h/u");
        text = "{" + words["head"] + text.substr(1, text.size() - 3) + words["last"] + "}\n" + words["tail"];
        const size_t size = strtoul(words["pad"].c_str(), nullptr, 10);
        if (size != 0) text += "--" + std::string(size - text.size() - 3 - 346, 'x') + "\n";
        options.spec = at + "/spec";
        SignatureUse& use = options.signatureUse;
        use.isUnsigned = words.count("unsigned") != 0;
        writeWholeFile(at + "/spec", use.isUnsigned ? text : signedText(text));
        writeWholeFile(at + "/key.pem", publicKeyText());
        writeWholeFile(at + "/preshared", sampleFileKey() + "x");
        Program({"/bin/sh", "-c", "cd '" + at + "/files' && " + words["sh"]}).wait();
        if (words.count("unsigned") + words.count("nokey") == 0) use.publicKey = at + "/key.pem";
        if (words.count("nofiles") == 0) options.files.folder = at + "/files";
        if (words.count("secrets") != 0) options.files.secrets = at + "/preshared";
    }

    // The exit status of the program itself.
    int run(const std::string& arguments) const {
        const std::string line = "cd '" + scratch.path + "' && '" ROVU_PACK_PROGRAM "' check " + arguments;
        return Program({"/bin/sh", "-c", line}).wait();
    }
};

CheckResult check(const CheckOptions& options) {
    CheckResult result;
    std::string error;
    EXPECT_EQ(0, checkUpdate(options, &result, &error)) << error;
    return result;
}

std::string codesOf(const std::string& changes) {
    std::string codes;
    for (const Finding& finding : check(Sample(changes).options).findings.all)
        codes += std::string(" ") + findingCodeText(finding.code);
    return codes + " ";
}

const std::string kMd5 = "'0123456789abcdef0123456789abcdef'";
const std::string kLong(213, 'x');
const struct {
    FindingCode code;
    std::string provoked, missed;
} kFindingRows[] = {
    {eDeviceRefuses, "version=2", "version=1.9"},
    {eSpecTooLarge, "@pad=8193", "@pad=8192"},
    {eSpecNearLimit, "@pad=7373", "@pad=7372"},
    {eFunctionWord, "kernel.postinst='my_function'", "kernel.postinst='functions'"},
    {eCommentAsMarker, "@unsigned=|@tail=-- the end\n", "@unsigned=|@head=-- RV-20\n"},
    {eSignatureUnverified, "@nokey=", ""},
    {eRepeatedKey, "@head=hardware='RV-21',", "@head=Hardware='RV-21',"},
    {eUnreadKey, "clone_overley=1", "clone_overlay=1"},
    {eBehindGap, "@last=nil, 'before'", "@last='before', nil"},
    {eNilValue, "kernel.postinst=post", "kernel.postinst='post'"},
    {eHardwareToken, "hardware='RV-20, RV-21'", "hardware='RV-20,RV-21'"},
    {eBadDigest, "kernel.image_md5='0123456789ABCDEF0123456789ABCDEF'", "kernel.image_md5=" + kMd5},
    {eNoDigest, "script_hash=''", "script_hash=''|steps=kernel rootfs"},
    {eLimitZero, "kernel.dlsize=0", "kernel.dlsize=1"},
    {eLimitTooSmall, "kernel.dlsize=10239", "kernel.dlsize=10240"},
    {eNegativeSize, "kernel.imsize=-1", "clone_overlay=-1"},
    {eVolumeTooSmall, "kernel.imsize=2999", "kernel.imsize=3000"},
    {eVersionNumber, "kernel.version=3.10", "kernel.version='3.10'"},
    {eNameEmpty, "kernel.image=''", "kernel.preinst=''"},
    {eNameQuote, "kernel.preinst=\"a'b\"", "kernel.preinst='a\"b'"},
    {eNameNewline, "kernel.preinst='a\\nb'", "kernel.preinst='a\\\\nb'"},
    {eNameHyphen, "kernel.image='-kernel'", "kernel.image='kernel-'"},
    {eNameCollides, "kernel.preinst='img1'", "kernel.preinst='img2'"},
    {eCommandTooLong, "kernel.image='x" + kLong + "'", "kernel.image='" + kLong + "'"},
    {eTwoOfAKind, "rootfs.type='kernel'", ""},
    {eNoMandatoryImage, "steps=before", "steps=before exit_success"},
    {eBehindExitSuccess, "steps=exit_success kernel", "steps=kernel exit_success"},
    {eNoSwitch, "steps=kernel exit_success", "steps=exit_success kernel"},
    {eDepNotTable, "kernel.dep={'rootfs','1','9'}", "kernel.dep={{'rootfs','1','9'}}"},
    {eDepWrongKind, "kernel.dep={{'!kernel','8','9'}}", "kernel.dep={{'!rootfs','8','9'}}"},
    {eDepUnsatisfiable, "kernel.dep={{'rootfs','1','2'},{'!rootfs','1','2'}}",
     "kernel.dep={{'rootfs','1','2'},{'!rootfs','1','1.65535.65535.65535'}}"},
    {eDepImagesDisagree, "kernel.dep={{'rootfs','8','9'}}", "kernel.dep={{'rootfs','3.0.7','9'}}"},
    {eTarMissing, "@sh=mkdir v && mv kernel v", "@sh=mkdir u && mv kernel u"},
    {eTarNotOpened, "encrypt=|encr_key_offset=0", "encrypt=|encr_key_offset=0|@secrets="},
    {eNotATar, "@sh=printf xyz >kernel", "@sh=gzip kernel && mv kernel.gz kernel"},
    {eCompressedTar, "@sh=gzip kernel && mv kernel.gz kernel", ""},
    {eMemberMissing, "kernel.image='kernel'", "kernel.image='kernel.img'"},
    {eScriptMissing, "kernel.postinst='Post'", "kernel.postinst='post'"},
    {eMemberLink, "@sh=ln -s /etc x && tar -rf kernel x", "@sh=touch x && tar -rf kernel x"},
    {eMemberClimbs, "kernel.preinst='../pre'", "kernel.preinst='..pre'"},
    {eDigestMismatch, "kernel.image_md5=" + kMd5, "@nofiles=|kernel.image_md5=" + kMd5},
    {eKeyWithoutEncryption, "encr_key_offset=0", "encr_key_offset=-1"},
    {eEncryptedWithoutKey, "encrypt=", "encrypt=|encr_key_offset=0"},
    {eDecryptionFails, "encrypt=|encr_key_offset=1|@secrets=", "encrypt=|encr_key_offset=0|@secrets="},
    {eRoomNeeded, "", "steps=exit_success|script_url=''"},
};

TEST(PackCheck, EveryFindingHasASpecThatProvokesItAndANearMiss) {
    std::set<FindingCode> covered;
    for (const auto& row : kFindingRows) {
        const std::string code = std::string(" ") + findingCodeText(row.code) + " ";
        covered.insert(row.code);
        EXPECT_NE(std::string::npos, codesOf(row.provoked).find(code)) << code;
        EXPECT_EQ(std::string::npos, codesOf(row.missed).find(code)) << code;
    }
    EXPECT_EQ(static_cast<size_t>(eFindingCodeCount), covered.size());
    EXPECT_EQ(" room-needed ", codesOf("")) << "a good update";
    EXPECT_EQ(" room-needed ", codesOf("encrypt=|encr_key_offset=0|@secrets="));
    EXPECT_EQ(" decryption-fails room-needed ", codesOf("encrypt=|encr_key_offset=2|@secrets="));
    EXPECT_EQ(" nil-value behind-gap ", codesOf("@head=first,|steps=kernel"));
}

const struct {
    std::string changes, key;
} kRefusalRows[] = {
    {"version=2", "version"},
    {"hardware=true", "hardware"},
    {"script_url=true", "script_url"},
    {"@last=true", "5"},
    {"@last='" + std::string(64, 'x') + "'", "5"},
    {"rootfs.type='roofts'", "4.type"},
    {"rootfs.update='Mandatory'|steps=rootfs", "1.update"},
    {"rootfs.imsize='x'", "4.imsize"},
    {"rootfs.imsize='x'|kernel.imsize='x'", "2.imsize"},
    {"kernel.url=true", "2.url"},
    {"kernel.hash=true", "2.hash"},
    {"kernel.image=true", "2.image"},
    {"kernel.image_md5=true", "2.image_md5"},
    {"kernel.postinst='" + std::string(32, 'x') + "'", "2.postinst"},
    {"kernel.dep={{'rootfs','1','9'},{'rotfs','1','9'}}", "2.dep.2"},
};

TEST(PackCheck, RefusalNamesItsValueAndNothingIsSaidThatOnlyFollows) {
    for (const auto& row : kRefusalRows) {
        SCOPED_TRACE(row.changes);
        const Sample sample(row.changes + "|@nofiles=");
        const CheckResult result = check(sample.options);
        const Finding& finding = result.findings.all.front();
        EXPECT_EQ(eDeviceRefuses, finding.code);
        EXPECT_EQ(row.key, finding.place.key);
        EXPECT_NE(0, finding.place.line);
        EXPECT_EQ(1U, result.findings.count(eError) + result.findings.count(eWarning));
    }
}

TEST(PackCheck, FindingsNameTheLineTheNearestKeyAndTheDevicesWords) {
    const CheckResult result = check(Sample("kernel.versoin='1'|kernel.version='1.x'|steps=kernel").options);
    const std::string refusal = result.findings.all.front().why;
    EXPECT_NE(std::string::npos, refusal.find(": LUA parsing failed: Bad version string: 1.x; "));
    const Finding& finding = result.findings.all.at(1);
    const Strings lines = split(result.spec.text, '\n');
    EXPECT_NE(std::string::npos, lines.at(static_cast<size_t>(finding.place.line) - 1).find("versoin"));
    EXPECT_NE(std::string::npos, finding.advice.find("\"version\""));

    const Sample grown("@sh=printf x >>kernel");
    const Finding limit = check(grown.options).findings.all.front();
    EXPECT_EQ(grown.options.spec, limit.place.file);
    EXPECT_EQ(0U, limit.why.find(grown.options.files.folder + "/kernel has 10241 bytes, "));
}

TEST(PackCheck, SizesAreThoseThatTheDeviceTakes) {
    EXPECT_EQ(2147483647U, check(Sample("kernel.imsize=3e9|@nofiles=").options).room.extracted);
}

TEST(PackCheck, ExitStatusTellsCleanFromFindingsFromTrouble) {
    const Sample good, warned("kernel.dlsize=0");
    EXPECT_EQ(0, good.run("spec --pub key.pem --files files --strict"));
    EXPECT_EQ(1, good.run("spec --pub preshared"));
    EXPECT_EQ(1, good.run("spec --device model=RV-20,kernel=3,rootfs=2 --device model=X,kernel=3,rootfs=2"));
    EXPECT_EQ(2, good.run("none"));
    EXPECT_EQ(2, good.run("spec --pub key.pem --unsigned"));
    EXPECT_EQ(2, good.run("spec --device model=RV-20"));
    EXPECT_EQ(2, good.run("spec --model '' --kernel 3 --rootfs 2"));
    EXPECT_EQ(2, good.run("spec --pub key.pem --files files --secrets files"));
    EXPECT_EQ(0, warned.run("spec"));
    EXPECT_EQ(1, warned.run("spec --strict --json"));
}

const struct {
    const char *name, *steps, *changes;
    const char* choice;  // of the images, in their order
    const char* model = "RV-20";
    uint32_t activeSet = 0;
} kPlanRows[] = {
    {"encrypted, cloned", "_prepare before kernel between rootfs", "", "kept kept"},
    {"from set 1", "_prepare before kernel between rootfs", "", "kept kept", "RV-20", 1},
    {"plain", "rootfs kernel", "encrypt=no|encr_key_offset=-1|clone_overlay=0", "kept kept"},
    {"dropped", "kernel rootfs", "kernel.update='optional'|rootfs.dep=nil", "dropped kept"},
    {"dropped", "before kernel rootfs", "rootfs.update='optional'", "kept dropped"},
    {"promoted", "kernel rootfs", "rootfs.update='optional'|kernel.dep={{'rootfs','3','9'}}",
     "kept promoted"},
    {"promoted", "kernel rootfs", "kernel.update='optional'", "promoted kept"},
    {"no version fits", "kernel rootfs", "kernel.dep={{'rootfs','9','9'}}", "refused refused"},
    {"two of a kind", "kernel rootfs", "rootfs.type='kernel'", "refused refused"},
    {"another model", "before kernel", "", "", "RV-19"},
    {"an early end", "_prepare kernel exit_success rootfs", "", "kept kept"},
    {"scripts only", "_prepare sub/_more before", "", ""},
    {"preparation only", "_prepare", "script_hash=''", ""},
    {"nothing at all", "", "", ""},
    {"optional only", "before kernel", "kernel.update='optional'", "dropped"},
    {"a spec of the future", "before", "version=2", ""},
};

// The commands as the stand-in device records them: without folders of programs, with ids and sizes.
Strings commandsOf(const Plan& plan) {
    const Strings kVolumes = {"k0", "k0_root", "k0_data", "k1", "k1_root", "k1_data"};
    Strings lines;
    for (const PlanStep& step : plan.steps) {
        std::string line = step.words.front().substr(step.words.front().rfind('/') + 1);
        for (size_t i = 1; i < step.words.size(); ++i)
            line += " " + std::regex_replace(step.words[i], std::regex("\\{size of k._data\\}"), "380928");
        for (size_t id = 0; id < kVolumes.size(); ++id)
            line = std::regex_replace(line, std::regex(".id of " + kVolumes[id] + "\\}"), std::to_string(id));
        lines.push_back(stateText(step.state) + (": " + line));
    }
    return lines;
}

TEST(PackPlan, IsWhatTheRunThenDoes) {
    for (const auto& row : kPlanRows) {
        SCOPED_TRACE(row.name);
        rovusim::DeviceOptions device;
        device.model = row.model;
        World world(split(row.steps, ' '), device);
        change(&world.update, row.changes);
        world.publish();
        if (row.activeSet == 1) {
            ASSERT_EQ(0, world.run().status);
            ASSERT_EQ(0, rovusim::restartDevice(world.device.directory, nullptr));
            device = {row.model, "4.1", "3.0.7", device.totalLebs};
        }
        const size_t before = world.web.requests().size();
        const std::string files = world.web.directory();
        const SignatureUse key = {world.device.pathOf("/etc/ssh/rovu_pub.pem"), false};
        const FileOptions tars = {files, world.device.pathOf("/app0/secrets/rovu/preshared")};
        const DeviceKind kind = {row.model, device.kernelRelease, device.rootfsVersion};
        const CheckResult result = check({files + "/spec", key, tars, {kind}});
        const FleetRow& planned = result.fleet.front();
        const Plan& plan = planned.plans[row.activeSet];
        const Selection& selection = planned.selection;
        const Outcome outcome = world.run({"-v"});
        std::string choice;
        for (const ImageChoice& image : selection.images)
            choice += (choice.empty() ? "" : " ") + std::string(outcomeText(image.outcome));
        EXPECT_EQ(row.choice, choice);
        EXPECT_EQ(commandsOf(plan), world.device.commands());
        EXPECT_EQ(planned.accepts() ? 0 : 1, outcome.status);
        EXPECT_EQ(stateText(plan.stages.back().state), world.device.state());
        EXPECT_EQ(plan.switches, rovusim::rebootRequested(world.device.directory));
        uint64_t served = 0;
        for (const std::string& request : split(world.web.requests().substr(before), '\n'))
            served += readWholeFile(files + split(request, ' ').front()).size();
        EXPECT_EQ(planned.room.download, served);
        EXPECT_TRUE(selection.refusedIn != eStateCheckingDependencies || outcome.said(selection.refusal));
    }
}

}  // namespace
