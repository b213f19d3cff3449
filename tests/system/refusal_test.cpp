// Updates that come to nothing, and what the program says about each.

#include "support/crypto.h"
#include "world.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum When { eEarly, eFlashing };  // before anything is flashed, or after

// The messages' beginnings, one a line: a library has a say in the rest of some.
void expectRefusal(World& world, const std::string& messages, When when) {
    SCOPED_TRACE(messages);
    const Outcome outcome = world.run();
    const Strings said = split(outcome.messages, '\n'), expected = split(messages, '\n');
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(said.size(), expected.size()) << outcome.messages;
    for (size_t i = 0; i < said.size() && i < expected.size(); ++i)
        EXPECT_EQ(said[i].substr(0, expected[i].size()), expected[i]);
    EXPECT_EQ(world.device.get("/tmp/rovu.progress"), progressText("error"));
    EXPECT_FALSE(world.device.has("/tmp/rovu") || world.device.has("/app0/.ubiRefChk1.new"));
    EXPECT_EQ(world.written().empty(), when == eEarly);
    world.expectUntouchedBoot();
}

const std::string kRead = "\nParsing of FW update spec file failed: " + std::to_string(EBADRQC);
const std::string kVerify = "Signature verification of /tmp/rovu/rovu.lua failed: ";
const std::string kEvaluate = "Parsing of upgrade configuration file failed: ";
const std::string kHash = "Hash verification failed", kNoEntry = std::to_string(ENOENT);
const std::string kCut = "CURL download failed after ", kRefused = kCut + "0 bytes: (7) \n";

}  // namespace

TEST(Refusals, OfFieldsThatAreWrong) {
    const LoopbackPort closed(false);
    const std::string emptyHash = "'" + sha256Hex("") + "'", emptyMd5 = "'" + md5Hex("") + "'";
    const Table<Field, std::string, When> rows = {
        {{"", "version", "2"}, "LUA parsing failed: FW update spec version 2 not supported" + kRead, eEarly},
        {{"rootfs", "imsize", "nil"},
         "LUA parsing failed: Value for \"imsize\" is not a number." + kRead,
         eEarly},
        {{"", "hardware", "'RV-2'"}, "HW model \"RV-20\" is not supported in spec \"RV-2\"", eEarly},
        {{"kernel", "version", "'5'"}, "Update dependencies not met.", eEarly},
        {{"rootfs", "type", "'kernel'"}, "Multiple images of a kind.", eEarly},
        {{"", "encr_key_offset", "11"}, "Failed to load key for file decryption", eEarly},
        {{"", "encr_key_offset", "0"}, "SSL decryption failed:", eEarly},
        {{"", "script_dlsize", "9999"}, kCut + "9999 bytes: (23) ", eEarly},
        {{"rootfs", "dlsize", "9999"}, kCut + "9999 bytes: (23) ", eEarly},
        {{"", "script_hash", emptyHash}, kHash, eEarly},
        {{"rootfs", "hash", emptyHash}, kHash, eEarly},
        {{"", "script_url", "''"}, "Failed to extract \"_prepare\"", eEarly},
        {{"kernel", "preinst", "'other'"}, "Failed to extract \"other\"", eFlashing},
        {{"rootfs", "image", "'other'"}, "Failed to extract \"other\"", eFlashing},
        {{"rootfs", "image_md5", emptyMd5}, "Volume verification for \"k1_root\" failed (32, 0).", eFlashing},
        {{"rootfs", "image_md5", "'abc'"}, "", eFlashing},
        {{"rootfs", "imsize", "1"}, "Failed to flash UBI volume \"k1_root\"", eFlashing},
        {{"rootfs", "imsize", "2147483647"}, "Failed to create UBI volume \"k1_root\"", eFlashing},
        {{"kernel", "url", "'" + closed.url() + "'"},
         kRefused + kRefused + kRefused + kRefused + kRefused,
         eEarly}};
    for (const auto& [field, messages, when] : rows) {
        World world;
        world.set(field);
        expectRefusal(world, messages, when);
        EXPECT_EQ(world.device.waits(), field.key == "url" ? " 60 60 60 60" : "");
    }
}

TEST(Refusals, OfSpecsThatAreNotTheirAuthors) {
    World good;
    good.publish();
    const std::string spec = good.spec();
    const Table<std::string, std::string> rows = {
        {spec.substr(0, spec.rfind("--")), "Signature not found in /tmp/rovu/rovu.lua"},
        {" " + spec, kVerify + std::to_string(EBADMSG)},
        {spec.substr(0, spec.size() - 4), kVerify + std::to_string(EILSEQ)},
        {spec + std::string(8193 - spec.size(), '\n'), kCut + "8192 bytes: (23) "},
        {signedText("version = 1\n"), kEvaluate + "[string "},
        {signedText("{function() end}\n"), kEvaluate + std::to_string(EILSEQ)}};
    for (const auto& [bytes, messages] : rows) {
        World world;
        world.publish(bytes);
        expectRefusal(world, messages, eEarly);
    }
}

TEST(Refusals, OfFilesThatAreMissingOrInTheWay) {
    const std::string key = "/etc/ssh/rovu_pub.pem", next = "/app0/.ubiRefChk2.new";
    for (const auto& [file, messages] :
         Table<std::string, std::string>{{"/spec", "Signature not found in "}, {"/rootfs", kHash}}) {
        World world;
        world.publish();
        unlink((world.web.directory() + file).c_str());
        expectRefusal(world, messages, eEarly);
    }
    World keyless;
    unlink(keyless.device.pathOf(key).c_str());
    expectRefusal(keyless,
                  "Failed to open public-key file " + key + ": " + kNoEntry + "\n" + kVerify + kNoEntry,
                  eEarly);
    keyless.device.put(key, "no key");
    expectRefusal(keyless, kVerify + std::to_string(ENOMEM), eEarly);
    World occupied;
    mkdir(occupied.device.pathOf(next).c_str(), 0755);
    const std::string failed =
        next + "\": " + std::to_string(EISDIR) + "\nFailed to write " + next + ": " + std::to_string(EISDIR);
    expectRefusal(occupied,
                  "Failed to open file \"" + failed +
                      "\nFailed to write UBI volume checksum reference files.",
                  eFlashing);
}

TEST(Refusals, OfADeviceThatRunsAnotherSetThanItWouldBoot) {
    World world;
    rovusim::saveDevice(world.device.directory, {"RV-20", "3.10.49-2", "2.4.1", 1024, 1});
    expectRefusal(world, "Inconsistent state between bootswitcher and running kernel.", eEarly);
}

TEST(Refusals, OfScriptsAndCommandsThatFail) {
    const Table<std::string, When> scripts = {
        {"_prepare", eEarly}, {"before", eEarly}, {"pre", eFlashing}, {"post", eFlashing}};
    for (const auto& [script, when] : scripts) {
        World world;
        for (TarMembers* members : {&world.update.scripts, &world.update.images["kernel"].members}) {
            for (auto& member : *members)
                if (member.first == script) member.second = "exit 3\n";
        }
        expectRefusal(world, "Failed to run script \"/tmp/rovu/" + script + "\"", when);
    }
    const Table<const char*, const char*, When> rules = {
        {"fw_printenv=exit:1", "Failed to read bootswitcher state (0, 1).", eEarly},
        {"md5sum:1=exit:1", "Failed to calculate overlay MD5 sum (0, 1).", eEarly},
        {"fw_setenv=exit:3", "Failed to run fw_setenv (0, 3)", eFlashing},
        {"fw_setenv=missing", "Failed to run fw_setenv (0, 127)", eFlashing}};
    for (const auto& [rule, messages, when] : rules) {
        World world;
        world.device.failCall(rule);
        expectRefusal(world, messages, when);
    }
}
