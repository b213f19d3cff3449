#include "lua_text.h"
#include "spec_reader.h"
#include "unit_test.h"

#include <cstddef>

namespace {

using Part = UpdateSpecVer1::Part;

// Good fields; what stands behind them in a table overrides them.
const std::string kTop = "version=1,hardware='hw',script_url='su',script_hash='sh',script_dlsize=3,";
const std::string kImage = "type='rootfs',update='mandatory',imsize=1,dlsize=2,url='u',hash='h',image='i',"
                           "image_md5='m',version='1',";

std::string versionText(PackedVersion version) {
    char text[32];
    return formatVersion(version, text, sizeof text);
}

// All fields of a spec, then its parts along the links forwards, and their number along those backwards.
std::string describe(UpdateSpecVer1* spec) {
    const auto number = [](auto value) { return std::to_string(value) + "|"; };
    std::string text;
    for (const char* field : {spec->hardware, spec->script_url, spec->script_hash})
        text += field + "|"s;
    text += number(spec->script_dlsize) + number(spec->clone_overlay) + number(spec->encr_key_offset);
    for (Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        text += isScript(*part) ? "\nscript "s + part->name : "\n" + number(part->type);
        if (isScript(*part)) continue;
        const UpdateSpecVer1::Image& i = part->img;
        text += number(i.update) + versionText(i.version) + "|" + number(i.imsize) + number(i.dlsize);
        for (const char* field : {i.url, i.hash, i.localName, i.image, i.image_md5, i.preinst, i.postinst})
            text += field + "|"s;
        for (const auto* dep = i.deps; dep != i.deps + i.depCount; ++dep)
            text += (dep->negated ? " !" : " ") + std::to_string(dep->kind) + ":" + versionText(dep->min) +
                    "-" + versionText(dep->max);
    }
    text += "\n";
    for (ListNode* node = spec->parts.prev; node != &spec->parts; node = node->prev)
        text += "<";
    return text;
}

// The description of a good spec; the message that was raised; or else what was logged.
std::string readText(const std::string& text) {
    const LogCapture log;
    LuaState lua;
    EXPECT_EQ(lua.load(text), 0) << text;
    UpdateSpecVer1* spec = readSpec(std::exchange(lua.L, nullptr));
    const std::string result = spec == nullptr ? "" : describe(spec);
    freeSpec(spec);
    const std::regex raised("ROVU: LUA parsing failed: (.*)\nROVU: Parsing of FW update spec file failed: " +
                            std::to_string(EBADRQC) + "\n");
    return std::regex_replace(log.messages(), raised, "$1") + result;
}

std::string readTop(const std::string& fields) {
    return readText("{" + kTop + fields + "}");
}

std::string readImage(const std::string& fields) {
    return readTop("{" + kImage + fields + "}");
}

}  // namespace

TEST(SpecReader, FillsTheRecordFromTheText) {
    EXPECT_EQ(
        readText(
            R"({ version = 1.9, hardware = 'modelA,modelB', clone_overlay = 1, encr_key_offset = 48, other = {},
        script_url = 'tar', script_hash = 'digest', script_dlsize = 8192, '_prepare.sh', { type = 'rootfs', image = 'i.img',
        update = 'mandatory', imsize = 8193, dlsize = '8194', url = 'u', hash = 'h', image_md5 = 'sum', postinst = 'after',
        version = '2.1.0.7', dep = { { 'kernel', '3.10', '3.11' }, 'skipped', { '!rootfs', 3.10, '3.1', 'ignored' } } },
        42, { type = 'kernel', update = 'optional', imsize = -1, dlsize = 0, url = '', hash = '', image = '',
        image_md5 = '', preinst = 'before', version = 7 }, nil, 'behind the gap' })"),
        "modelA,modelB|tar|digest|8192|1|48|\nscript _prepare.sh\n"
        "2|1|2.1.0.7|8193|8194|u|h|img0|i.img|sum||after| 1:3.10.0.0-3.11.0.0 !2:3.1.0.0-3.1.0.0\n"
        "script 42\n1|0|7.0.0.0|4294967295|0|||img1|||before||\n<<<<");
    const std::string name(31, 'n'), image = "\n2|1|1.0.0.0|1|2|u|h|img0|i|m|||\n";
    EXPECT_EQ(readText("{version='1',hardware='',script_url={},script_hash=1,script_dlsize=true,[2]='x'}"),
              "|||0|0|-1|\n");
    EXPECT_EQ(readTop("clone_overlay=0.5,encr_key_offset=0"), "hw|||0|0|0|\n");
    EXPECT_EQ(readTop("clone_overlay=-1,encr_key_offset=-7"), "hw|||0|1|-7|\n");
    EXPECT_EQ(readTop("script_url='','" + name + "'"), "hw||sh|3|0|-1|\nscript " + name + "\n<");
    EXPECT_EQ(readImage("dep={}"), "hw|||0|0|-1|" + image + "<");
    EXPECT_EQ(readImage("dep={'kernel',x={}}"), "hw|||0|0|-1|" + image + "<");
}

TEST(SpecReader, RefusesAFaultWithItsMessage) {
    expectRows("nil => attempt to index a nil value | 'text' => attempt to index a string value", readText);
    expectRows("version=2,hardware=nil => FW update spec version 2 not supported | "
               "'a',true => Unexpected part data type at index 2 | "
               "'12345678901234567890123456789012' => Failed to read script name | "
               "script_url=nil,'x',{type=nil} => Missing enum value for \"type\"",
               readTop);
    expectRows(
        "type='Kernel' => Bad enum value for type: Kernel (expected one of kernel,rootfs) | "
        "update='o' => Bad enum value for update: o (expected one of optional,mandatory) | "
        "update=nil => Missing enum value for \"update\" | version='1.x',dep=1 => Bad version string: 1.x | "
        "imsize=nil => Value for \"imsize\" is not a number. | dep=1 => Bad type for \"tdep\t | "
        "preinst=false => Invalid string for field \"preinst\" | "
        "dep={{'kernel','1'}} => Bad string in dependency | "
        "dep={{'kernel','1','2'},{}} => Bad string in dependency | "
        "dep={{true,'1','2'}} => Bad string in dependency | "
        "dep={{'kernel','11111111111111111111111111111111','2'}} => Bad string in dependency | "
        "dep={{'!','1','2'}} => Bad dependency type | dep={{'!!kernel','1','2'}} => Bad dependency type | "
        "dep={{'Kernel','x','2'}} => Bad dependency type | "
        "dep={{'kernel','','2'}} => Bad version spec in dependency | "
        "dep={{'kernel','0','2x'}} => Bad version spec in dependency | "
        "dep={{'kernel','1','1'},{'kernel','1.0.0.1','1'}} => Bad version spec in dependency",
        readImage);
}

TEST(SpecReader, HoldsEveryTextToItsLimit) {
    const auto check = [](const std::string& field, size_t limit, const auto& read) {
        const std::string longest(limit, '1');
        EXPECT_NE(read(field + "='" + longest + "'").find(longest + "|"), std::string::npos) << field;
        EXPECT_EQ(read(field + "='" + longest + "1'"), "String too long: " + longest + "1");
    };
    const auto withScript = [](const std::string& fields) { return readTop(fields + ",'script'"); };
    check("hardware", 31, withScript);
    check("script_url", 159, withScript);
    check("script_hash", 64, withScript);
    for (const char* field : {"preinst", "postinst"})
        check(field, 31, readImage);
    check("url", 159, readImage);
    check("hash", 64, readImage);
    check("image", 63, readImage);
    check("image_md5", 32, readImage);
    EXPECT_EQ(readImage("version='" + std::string(32, '1') + "'"),
              "String too long: " + std::string(32, '1'));
}

TEST(SpecReader, TakesTheFieldsInOrderAndStopsAtTheFirstFault) {
    // From each field on everything is wrong, and the message is that of the field.
    const auto check = [](const std::vector<std::string>& fields, const std::string& front,
                          const std::string& back) {
        std::string faults;
        for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
            faults += *field + "=true,";
            const std::string message = readText(front + faults + back);
            EXPECT_TRUE(std::regex_search(message, std::regex("\\bt?" + *field + "\\b"))) << message;
        }
    };
    check({"version", "hardware", "clone_overlay", "encr_key_offset"}, "{" + kTop, "true}");
    check({"script_url", "script_hash", "script_dlsize"}, "{" + kTop, "'script'}");
    check({"type", "update", "imsize", "dlsize", "url", "hash"}, "{" + kTop + "{" + kImage, "image=0},true}");
    check({"image", "image_md5", "preinst", "postinst", "version", "dep"}, "{" + kTop + "{" + kImage,
          "},true}");
}

TEST(SpecReader, RunningOutOfMemoryIsNoFaultOfTheText) {
    const Interposition calls;
    const std::string dep = "{'kernel','1','2'},", one = "{" + kImage + "dep={" + dep + "}},";
    // The spec; a script, whose record ends with its name; an image; the second image's list.
    for (size_t size : {sizeof(UpdateSpecVer1), offsetof(Part, name) + sizeof(Part::name), sizeof(Part),
                        3 * sizeof(UpdateSpecVer1::Dep)}) {
        interposed.refusedAllocation = size;
        EXPECT_EQ(readTop(one + "'x',{" + kImage + "dep={" + dep + dep + dep + "}}"),
                  "ROVU: Parsing of FW update spec file failed: " + std::to_string(ENOMEM) + "\n");
    }
}
