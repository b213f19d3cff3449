#include "lua_state.h"
#include "support/program.h"
#include "unit_test.h"
#include "update_spec/spec_reader.h"

#include <sstream>

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

std::string textOf(PackedVersion version) {
    char text[32];
    return formatVersion(version, text, sizeof text);
}

std::string textOf(const Spec::Part& part) {
    const char* const kKinds[] = {"script", "kernel", "rootfs"};
    if (isScript(part)) return "script "s + part.name;
    const Spec::Image& image = part.img;
    std::ostringstream text;
    text << (isMandatory(part) ? "mandatory " : "optional ") << kKinds[part.type] << " "
         << textOf(image.version) << " " << image.imsize << " " << image.dlsize;
    for (const char* field : {image.url, image.hash, image.localName, image.image, image.image_md5,
                              image.preinst, image.postinst})
        text << " '" << field << "'";
    for (const Spec::Dep* dep = image.deps; dep != image.deps + image.depCount; ++dep)
        text << (dep->negated ? ", not " : ", ") << kKinds[dep->kind] << " " << textOf(dep->min) << " to "
             << textOf(dep->max);
    return text.str();
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

    /// The fields of the spec, and then a line for each part; or the messages.
    Strings lines() const {
        if (spec == nullptr) return {messages};
        std::ostringstream head;
        head << "'" << spec->hardware << "' '" << spec->script_url << "' '" << spec->script_hash << "' "
             << spec->script_dlsize << ", clone " << spec->clone_overlay << ", key at "
             << spec->encr_key_offset;
        Strings lines = {head.str()};
        const ListNode* last = &spec->parts;
        for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
            EXPECT_EQ(part->node.prev, last);
            last = &part->node;
            lines.push_back(textOf(*part));
        }
        EXPECT_EQ(spec->parts.prev, last);
        return lines;
    }

    Spec* spec = nullptr;
    std::string messages;
};

std::string refusal(const std::string& raised) {
    return "ROVU: LUA parsing failed: " + raised +
           "\nROVU: Parsing of FW update spec file failed: " + std::to_string(EBADRQC) + "\n";
}

}  // namespace

TEST(SpecReader, FillsTheRecordInTheOrderOfTheParts) {
    const std::string good = "mandatory rootfs 1.0.0.0 1 2 'u' 'h' 'img0' 'i' 'm' '' ''";
    const std::string withoutScript = "'hw' '' '' 0, clone 0, key at -1";
    const struct {
        std::string expression;
        Strings lines;
    } rows[] = {
        {R"({ version = 1.9, hardware = 'modelA,modelB', clone_overlay = 1, encr_key_offset = 48, other = {},
        script_url = 'tar', script_hash = 'digest', script_dlsize = 8192, '_prepare.sh', { type = 'rootfs', image = 'i.img',
        update = 'mandatory', imsize = 8193, dlsize = '8194', url = 'u', hash = 'h', image_md5 = 'md5', postinst = 'after',
        version = '2.1.0.7', dep = { { 'kernel', '3.10', '3.11' }, 'skipped', { '!rootfs', 3.10, '3.1', 'ignored' } } },
        42, { type = 'kernel', update = 'optional', imsize = -1, dlsize = 0, url = '', hash = '', image = '',
        image_md5 = '', preinst = 'before', version = 7 }, nil, 'after the gap' })",
         {"'modelA,modelB' 'tar' 'digest' 8192, clone 1, key at 48", "script _prepare.sh",
          "mandatory rootfs 2.1.0.7 8193 8194 'u' 'h' 'img0' 'i.img' 'md5' '' 'after', "
          "kernel 3.10.0.0 to 3.11.0.0, not rootfs 3.1.0.0 to 3.1.0.0",
          "script 42", "optional kernel 7.0.0.0 4294967295 0 '' '' 'img1' '' '' 'before' ''"}},
        // Without a script in the list nothing of the script tar is read.
        {"{version='1',hardware='',script_url={},script_hash=1,script_dlsize=true,[2]='x'}",
         {"'' '' '' 0, clone 0, key at -1"}},
        {specWith("clone_overlay=0.5,encr_key_offset=0"), {"'hw' '' '' 0, clone 0, key at 0"}},
        {specWith("clone_overlay=-1,encr_key_offset=-7"), {"'hw' '' '' 0, clone 1, key at -7"}},
        {specWith("script_url='','longest name of 31 characters..'"),
         {"'hw' '' 'sh' 3, clone 0, key at -1", "script longest name of 31 characters.."}},
        {specWith(imageWith("dep={}")), {withoutScript, good}},
        {specWith(imageWith("dep={'kernel',x={}}")), {withoutScript, good}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        EXPECT_EQ(Reading(row.expression).lines(), row.lines);
    }
}

TEST(SpecReader, RefusesAFaultWithItsMessage) {
    const std::string badString = "Bad string in dependency", badType = "Bad dependency type",
                      badVersion = "Bad version spec in dependency";
    const auto badImage = [](const char* fields) { return specWith(imageWith(fields)); };
    const auto badKind = [](const std::string& shown) {
        return "Bad enum value for type: " + shown + " (expected one of kernel,rootfs)";
    };
    const struct {
        std::string expression, message;
    } rows[] = {
        {"nil", "attempt to index a nil value"},
        {"'text'", "attempt to index a string value"},
        {specWith("version=2,hardware=nil"), "FW update spec version 2 not supported"},
        {specWith("'a',true"), "Unexpected part data type at index 2"},
        {specWith("'12345678901234567890123456789012'"), "Failed to read script name"},
        {badImage("type='kern'"), badKind("kern")},
        {badImage("type='kernels'"), badKind("kernels")},
        {badImage("type='Kernel'"), badKind("Kernel")},
        {badImage("type=' rootfs'"), badKind(" rootfs")},
        {badImage("type='kernel,rootfs'"), badKind("kernel,rootfs")},
        {badImage("type=''"), badKind("")},
        {badImage("type={}"), badKind("null")},
        {badImage("update='o'"), "Bad enum value for update: o (expected one of optional,mandatory)"},
        {badImage("type=nil"), "Missing enum value for \"type\""},
        {badImage("update=nil"), "Missing enum value for \"update\""},
        {badImage("version='1.x',dep=1"), "Bad version string: 1.x"},
        {badImage("version='12345678901234567890123456789012'"),
         "String too long: 12345678901234567890123456789012"},
        {badImage("imsize=nil"), "Value for \"imsize\" is not a number."},
        {badImage("dep=1"), "Bad type for \"tdep\t"},  // as the program's message has it
        {badImage("url=nil"), "Invalid string for field \"url\""},
        {badImage("preinst=false"), "Invalid string for field \"preinst\""},
        {badImage("dep={{'kernel','1'}}"), badString},
        {badImage("dep={{true,'1','2'}}"), badString},
        {badImage("dep={{'kernel','11111111111111111111111111111111','2'}}"), badString},
        {badImage("dep={{'!','1','2'}}"), badType},
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
        size_t limit;
        bool ofImage;
    } rows[] = {
        {"hardware", 31, false}, {"script_url", 159, false}, {"script_hash", 64, false},
        {"preinst", 31, true},   {"postinst", 31, true},     {"url", 159, true},
        {"hash", 64, true},      {"image", 63, true},        {"image_md5", 32, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.field);
        const std::string longest(row.limit, '1'), tooLong = longest + "1";
        const auto specOf = [&](const std::string& value) {
            const std::string field = row.field + ("='" + value + "'");
            return specWith(row.ofImage ? imageWith(field) : field + ",'script'");
        };
        const Strings lines = Reading(specOf(longest)).lines();
        const std::string& line = row.ofImage ? lines.back() : lines.front();
        EXPECT_NE(line.find("'" + longest + "'"), std::string::npos) << line;
        EXPECT_EQ(Reading(specOf(tooLong)).messages, refusal("String too long: " + tooLong));
    }
}
