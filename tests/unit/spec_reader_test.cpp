#include "lua_state.h"
#include "spec_reader.h"
#include "unit_test.h"

#include <cstddef>

namespace {

using Spec = UpdateSpecVer1;
using Part = Spec::Part;

// Good fields; what follows them in a table overrides them.
const std::string kTop = "version=1,hardware='hw',script_url='su',script_hash='sh',script_dlsize=3,";
const std::string kImage = "type='rootfs',update='mandatory',imsize=1,dlsize=2,url='u',hash='h',image='i',"
                           "image_md5='m',version='1',";

std::string specWith(const std::string& fields) {
    return "{" + kTop + fields + "}";
}

std::string imageWith(const std::string& fields) {
    return "{" + kImage + fields + "}";
}

// A spec that was read, or what was logged.
struct Reading {
    explicit Reading(const std::string& expression) {
        const LogCapture log;
        LuaState state;
        EXPECT_EQ(state.load(expression), 0) << expression;
        spec = readSpec(std::exchange(state.lua, nullptr));
        messages = log.messages();
    }
    ~Reading() { freeSpec(spec); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    /// The parts along the links forwards, which must be those along the links backwards.
    std::vector<const Part*> parts() const {
        std::vector<const Part*> parts;
        std::vector<const ListNode*> nodes, reversed;
        for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
            parts.push_back(part);
            nodes.push_back(&part->node);
        }
        for (const ListNode* node = spec->parts.prev; node != &spec->parts; node = node->prev)
            reversed.insert(reversed.begin(), node);
        EXPECT_EQ(nodes, reversed);
        return parts;
    }

    Spec* spec = nullptr;
    std::string messages;
};

std::string refusal(const std::string& raised) {
    return "ROVU: LUA parsing failed: " + raised +
           "\nROVU: Parsing of FW update spec file failed: " + std::to_string(EBADRQC) + "\n";
}

// The fields of a spec apart from its parts.
struct Head {
    const char *hardware, *scriptUrl, *scriptHash;
    uint32_t scriptDlsize;
    bool cloneOverlay;
    int32_t keyOffset;
};

void expectHead(const Spec& spec, const Head& expected) {
    EXPECT_STREQ(spec.hardware, expected.hardware);
    EXPECT_STREQ(spec.script_url, expected.scriptUrl);
    EXPECT_STREQ(spec.script_hash, expected.scriptHash);
    EXPECT_EQ(spec.script_dlsize, expected.scriptDlsize);
    EXPECT_EQ(spec.clone_overlay, expected.cloneOverlay);
    EXPECT_EQ(spec.encr_key_offset, expected.keyOffset);
}

void expectScript(const Part& part, const std::string& name) {
    ASSERT_TRUE(isScript(part)) << name;
    EXPECT_EQ(part.name, name);
}

void expectImage(const Part& part, Spec::PartType kind, const Spec::Image& expected) {
    SCOPED_TRACE(expected.localName);
    ASSERT_EQ(part.type, kind);
    EXPECT_EQ(part.img.update, expected.update);
    EXPECT_EQ(part.img.version, expected.version);
    EXPECT_EQ(part.img.imsize, expected.imsize);
    EXPECT_EQ(part.img.dlsize, expected.dlsize);
    EXPECT_STREQ(part.img.url, expected.url);
    EXPECT_STREQ(part.img.hash, expected.hash);
    EXPECT_STREQ(part.img.localName, expected.localName);
    EXPECT_STREQ(part.img.image, expected.image);
    EXPECT_STREQ(part.img.image_md5, expected.image_md5);
    EXPECT_STREQ(part.img.preinst, expected.preinst);
    EXPECT_STREQ(part.img.postinst, expected.postinst);
    EXPECT_EQ(part.img.depCount, expected.depCount);
}

void expectDep(const Spec::Dep& dep, const Spec::Dep& expected) {
    EXPECT_EQ(dep.kind, expected.kind);
    EXPECT_EQ(dep.negated, expected.negated);
    EXPECT_EQ(dep.min, expected.min);
    EXPECT_EQ(dep.max, expected.max);
}

}  // namespace

TEST(SpecReader, FillsTheRecordInTheOrderOfTheParts) {
    const Reading reading(
        R"({ version = 1.9, hardware = 'modelA,modelB', clone_overlay = 1, encr_key_offset = 48, other = {},
        script_url = 'tar', script_hash = 'digest', script_dlsize = 8192, '_prepare.sh', { type = 'rootfs', image = 'i.img',
        update = 'mandatory', imsize = 8193, dlsize = '8194', url = 'u', hash = 'h', image_md5 = 'md5', postinst = 'after',
        version = '2.1.0.7', dep = { { 'kernel', '3.10', '3.11' }, 'skipped', { '!rootfs', 3.10, '3.1', 'ignored' } } },
        42, { type = 'kernel', update = 'optional', imsize = -1, dlsize = 0, url = '', hash = '', image = '',
        image_md5 = '', preinst = 'before', version = 7 }, nil, 'after the gap' })");
    ASSERT_NE(reading.spec, nullptr) << reading.messages;
    expectHead(*reading.spec, {"modelA,modelB", "tar", "digest", 8192, true, 48});
    const auto parts = reading.parts();
    ASSERT_EQ(parts.size(), 4U);
    expectScript(*parts[0], "_prepare.sh");
    expectImage(*parts[1], Spec::eTypeRootfs,
                {Spec::eUpdateMandatory, versionOf("2.1.0.7"), 8193, 8194, "u", "h", "img0", "i.img", "md5",
                 "", "after", 2, nullptr});
    expectDep(parts[1]->img.deps[0], {Spec::eTypeKernel, false, versionOf("3.10"), versionOf("3.11")});
    expectDep(parts[1]->img.deps[1], {Spec::eTypeRootfs, true, versionOf("3.1"), versionOf("3.1")});
    expectScript(*parts[2], "42");
    expectImage(*parts[3], Spec::eTypeKernel,
                {Spec::eUpdateOptional, versionOf("7"), UINT32_MAX, 0, "", "", "img1", "", "", "before", "",
                 0, nullptr});
}

TEST(SpecReader, ReadsOnlyTheFieldsThatTheUpdateNeeds) {
    const std::string name(31, 'n');
    const struct {
        std::string expression;
        Head head;
        size_t parts;
    } rows[] = {
        // Without a script in the list nothing of the script tar is read.
        {"{version='1',hardware='',script_url={},script_hash=1,script_dlsize=true,[2]='x'}",
         {"", "", "", 0, false, -1},
         0},
        {specWith("clone_overlay=0.5,encr_key_offset=0"), {"hw", "", "", 0, false, 0}, 0},
        {specWith("clone_overlay=-1,encr_key_offset=-7"), {"hw", "", "", 0, true, -7}, 0},
        {specWith("script_url='','" + name + "'"), {"hw", "", "sh", 3, false, -1}, 1},
        {specWith(imageWith("dep={}")), {"hw", "", "", 0, false, -1}, 1},
        {specWith(imageWith("dep={'kernel',x={}}")), {"hw", "", "", 0, false, -1}, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        const Reading reading(row.expression);
        ASSERT_NE(reading.spec, nullptr) << reading.messages;
        expectHead(*reading.spec, row.head);
        EXPECT_EQ(reading.parts().size(), row.parts);
        for (const Part* part : reading.parts()) {
            if (isScript(*part)) {
                expectScript(*part, name);
            } else {
                expectImage(*part, Spec::eTypeRootfs,
                            {Spec::eUpdateMandatory, versionOf("1"), 1, 2, "u", "h", "img0", "i", "m", "", "",
                             0, nullptr});
            }
        }
    }
}

TEST(SpecReader, RefusesAFaultWithItsMessage) {
    const std::string badString = "Bad string in dependency", badType = "Bad dependency type",
                      badVersion = "Bad version spec in dependency";
    const auto badImage = [](const char* fields) { return specWith(imageWith(fields)); };
    const struct {
        std::string expression, message;
    } rows[] = {
        {"nil", "attempt to index a nil value"},
        {"'text'", "attempt to index a string value"},
        {specWith("version=2,hardware=nil"), "FW update spec version 2 not supported"},
        {specWith("'a',true"), "Unexpected part data type at index 2"},
        {specWith("'12345678901234567890123456789012'"), "Failed to read script name"},
        {specWith("script_url=nil,'x',{type=nil}"), "Missing enum value for \"type\""},
        {badImage("type='Kernel'"), "Bad enum value for type: Kernel (expected one of kernel,rootfs)"},
        {badImage("update='o'"), "Bad enum value for update: o (expected one of optional,mandatory)"},
        {badImage("update=nil"), "Missing enum value for \"update\""},
        {badImage("version='1.x',dep=1"), "Bad version string: 1.x"},
        {badImage("imsize=nil"), "Value for \"imsize\" is not a number."},
        {badImage("dep=1"), "Bad type for \"tdep\t"},  // as the program's message has it
        {badImage("preinst=false"), "Invalid string for field \"preinst\""},
        {badImage("dep={{'kernel','1'}}"), badString},
        {badImage("dep={{'kernel','1','2'},{}}"), badString},
        {badImage("dep={{true,'1','2'}}"), badString},
        {badImage("dep={{'kernel','11111111111111111111111111111111','2'}}"), badString},
        {badImage("dep={{'!','1','2'}}"), badType},
        {badImage("dep={{'!!kernel','1','2'}}"), badType},
        {badImage("dep={{'Kernel','x','2'}}"), badType},
        {badImage("dep={{'kernel','','2'}}"), badVersion},
        {badImage("dep={{'kernel','0','2x'}}"), badVersion},
        {badImage("dep={{'kernel','1','1'},{'kernel','1.0.0.1','1'}}"), badVersion},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        EXPECT_EQ(Reading(row.expression).messages, refusal(row.message));
    }
}

TEST(SpecReader, HoldsEveryStringToItsLimit) {
    const struct {
        const char* field;
        size_t limit, offset;  // where the record holds it, in bytes
        bool ofImage;
    } rows[] = {
        {"hardware", 31, offsetof(Spec, hardware), false},
        {"script_url", 159, offsetof(Spec, script_url), false},
        {"script_hash", 64, offsetof(Spec, script_hash), false},
        {"preinst", 31, offsetof(Spec::Image, preinst), true},
        {"postinst", 31, offsetof(Spec::Image, postinst), true},
        {"url", 159, offsetof(Spec::Image, url), true},
        {"hash", 64, offsetof(Spec::Image, hash), true},
        {"image", 63, offsetof(Spec::Image, image), true},
        {"image_md5", 32, offsetof(Spec::Image, image_md5), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.field);
        const std::string longest(row.limit, '1'), tooLong = longest + "1";
        const auto specOf = [&](const std::string& value) {
            const std::string field = row.field + ("='" + value + "'");
            return specWith(row.ofImage ? imageWith(field) : field + ",'script'");
        };
        const Reading reading(specOf(longest));
        ASSERT_NE(reading.spec, nullptr) << reading.messages;
        const void* record = reading.spec;
        if (row.ofImage) record = &reading.parts().front()->img;
        EXPECT_EQ(static_cast<const char*>(record) + row.offset, longest);
        EXPECT_EQ(Reading(specOf(tooLong)).messages, refusal("String too long: " + tooLong));
    }
    const std::string longVersion(32, '1');
    EXPECT_EQ(Reading(specWith(imageWith("version='" + longVersion + "'"))).messages,
              refusal("String too long: " + longVersion));
}

TEST(SpecReader, TakesTheFieldsInOrderAndStopsAtTheFirstFault) {
    const struct {
        std::vector<const char*> fields;  // in the order in which they are read
        std::string before, after;        // the rest of the spec
    } rows[] = {
        {{"version", "hardware", "clone_overlay", "encr_key_offset"}, "{" + kTop, "true}"},
        {{"script_url", "script_hash", "script_dlsize"}, "{" + kTop, "'script'}"},
        {{"type", "update", "imsize", "dlsize", "url", "hash"}, "{" + kTop + "{" + kImage, "image=0},true}"},
        {{"image", "image_md5", "preinst", "postinst", "version", "dep"},
         "{" + kTop + "{" + kImage,
         "},true}"},
    };
    for (const auto& row : rows) {
        // From each field on everything is wrong, and the message is that of the field.
        std::string faults;
        for (auto field = row.fields.rbegin(); field != row.fields.rend(); ++field) {
            SCOPED_TRACE(*field);
            faults += *field + "=true,"s;
            const std::string messages = Reading(row.before + faults + row.after).messages;
            EXPECT_TRUE(std::regex_search(messages, std::regex("failed: .*\\bt?"s + *field + "\\b")))
                << messages;
        }
    }
}

TEST(SpecReader, RunningOutOfMemoryIsNoFaultOfTheSpec) {
    const Interposition calls;
    const struct {
        const char* record;
        size_t size;
    } rows[] = {
        {"the spec", sizeof(Spec)},
        {"a script, whose record ends with its name", offsetof(Part, name) + sizeof(Part::name)},
        {"an image", sizeof(Part)},
        {"the second image's dependencies", 3 * sizeof(Spec::Dep)},
    };
    const std::string dep = "{'kernel','1','2'},";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.record);
        interposed.refusedAllocation = row.size;
        const std::string images[] = {imageWith("dep={" + dep + "}"),
                                      imageWith("dep={" + dep + dep + dep + "}")};
        EXPECT_EQ(Reading(specWith(images[0] + ",'x'," + images[1])).messages,
                  "ROVU: Parsing of FW update spec file failed: " + std::to_string(ENOMEM) + "\n");
    }
}
