// Updates that are refused or fail, and what the program says about each.

#include "support/crypto.h"
#include "world.h"

#include <cerrno>
#include <regex>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum When { eEarly, eFlashing };  // before anything is flashed, or after

// `messages` are the beginnings of all log lines: a library has a say in the rest of some.
void expectRefusal(World& world, const Strings& messages, When when) {
    SCOPED_TRACE(testing::PrintToString(messages));
    const Outcome outcome = world.run();
    const Strings said = split(outcome.messages, '\n');
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(said.size(), messages.size()) << outcome.messages;
    for (size_t i = 0; i < said.size() && i < messages.size(); ++i)
        EXPECT_EQ(said[i].substr(0, messages[i].size()), messages[i]);
    EXPECT_EQ(world.device.get("/tmp/rovu.progress"), progressFile("error"));
    EXPECT_FALSE(world.device.has("/tmp/rovu") || world.device.has("/app0/.ubiRefChk1.new"));
    EXPECT_EQ(world.written().empty(), when == eEarly);
    world.expectUntouchedBoot();
}

Strings unreadable(const std::string& raised) {
    return {"LUA parsing failed: " + raised,
            "Parsing of FW update spec file failed: " + std::to_string(EBADRQC)};
}

const std::string kVerify = "Signature verification of /tmp/rovu/rovu.lua failed: ";
const std::string kEvaluate = "Parsing of upgrade configuration file failed: ";
const std::string kHash = "Hash verification failed", kCut = "CURL download failed after ";

}  // namespace

TEST(Refusals, OfFieldsThatAreWrong) {
    const LoopbackPort closed(false);
    const std::string emptyHash = "'" + sha256Hex("") + "'", emptyMd5 = "'" + md5Hex("") + "'",
                      closedUrl = "'" + closed.url() + "'";
    const Strings tooLong = {kCut + "9999 bytes: (23) "}, fiveRefused(5, kCut + "0 bytes: (7) ");
    const struct {
        Field field;
        Strings messages;
        When when;
        Strings waits;  // in seconds
    } rows[] = {
        {{"", "version", "2"}, unreadable("FW update spec version 2 not supported"), eEarly, {}},
        {{"rootfs", "imsize", "nil"}, unreadable("Value for \"imsize\" is not a number."), eEarly, {}},
        {{"", "hardware", "'RV-2'"}, {"HW model \"RV-20\" is not supported in spec \"RV-2\""}, eEarly, {}},
        {{"kernel", "version", "'5'"}, {"Update dependencies not met."}, eEarly, {}},
        {{"rootfs", "type", "'kernel'"}, {"Multiple images of a kind."}, eEarly, {}},
        {{"", "encr_key_offset", "11"}, {"Failed to load key for file decryption"}, eEarly, {}},
        {{"", "encr_key_offset", "0"}, {"SSL decryption failed:"}, eEarly, {}},
        {{"", "script_dlsize", "9999"}, tooLong, eEarly, {}},
        {{"rootfs", "dlsize", "9999"}, tooLong, eEarly, {}},
        {{"", "script_hash", emptyHash}, {kHash}, eEarly, {}},
        {{"rootfs", "hash", emptyHash}, {kHash}, eEarly, {}},
        {{"", "script_url", "''"}, {"Failed to extract \"_prepare\""}, eEarly, {}},
        {{"kernel", "preinst", "'other'"}, {"Failed to extract \"other\""}, eFlashing, {}},
        {{"rootfs", "image", "'other'"}, {"Failed to extract \"other\""}, eFlashing, {}},
        {{"rootfs", "image_md5", emptyMd5},
         {"Volume verification for \"k1_root\" failed (32, 0)."},
         eFlashing,
         {}},
        {{"rootfs", "image_md5", "'abc'"}, {}, eFlashing, {}},
        {{"rootfs", "imsize", "1"}, {"Failed to flash UBI volume \"k1_root\""}, eFlashing, {}},
        {{"rootfs", "imsize", "2147483647"}, {"Failed to create UBI volume \"k1_root\""}, eFlashing, {}},
        {{"kernel", "url", closedUrl}, fiveRefused, eEarly, {"60", "60", "60", "60"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.field.image + " " + row.field.key + "=" + row.field.value);
        World world;
        world.set(row.field);
        expectRefusal(world, row.messages, row.when);
        EXPECT_EQ(world.device.waits(), row.waits);
    }
}

TEST(Refusals, OfSpecsThatAreNotTheirAuthors) {
    World good;
    good.publish();
    const std::string spec = good.spec();
    const struct {
        const char* name;
        std::string spec, message;
    } rows[] = {
        {"unsigned", spec.substr(0, spec.rfind("--")), "Signature not found in /tmp/rovu/rovu.lua"},
        {"changed", " " + spec, kVerify + std::to_string(EBADMSG)},
        {"cut signature", spec.substr(0, spec.size() - 4), kVerify + std::to_string(EILSEQ)},
        {"too long", spec + std::string(8193 - spec.size(), '\n'), kCut + "8192 bytes: (23) "},
        {"a statement", signedText("version = 1\n"), kEvaluate + "[string "},
        {"a function", signedText("{function() end}\n"), kEvaluate + std::to_string(EILSEQ)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        World world;
        world.publish(row.spec);
        expectRefusal(world, {row.message}, eEarly);
    }
}

TEST(Refusals, OfFilesThatAreMissingFromTheServer) {
    const struct {
        const char *file, *message;
    } rows[] = {{"/spec", "Signature not found in "}, {"/rootfs", "Hash verification failed"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        World world;
        world.publish();
        unlink((world.web.directory() + row.file).c_str());
        expectRefusal(world, {row.message}, eEarly);
    }
}

TEST(Refusals, OfADeviceWithoutAKey) {
    const std::string key = "/etc/ssh/rovu_pub.pem", noEntry = std::to_string(ENOENT);
    World world;
    unlink(world.device.pathOf(key).c_str());
    expectRefusal(world, {"Failed to open public-key file " + key + ": " + noEntry, kVerify + noEntry},
                  eEarly);
    world.device.put(key, "no key");
    expectRefusal(world, {kVerify + std::to_string(ENOMEM)}, eEarly);
}

TEST(Refusals, OfADeviceThatCannotWriteItsReferenceFiles) {
    const std::string next = "/app0/.ubiRefChk2.new", isDirectory = std::to_string(EISDIR);
    World world;
    mkdir(world.device.pathOf(next).c_str(), 0755);
    expectRefusal(world,
                  {"Failed to open file \"" + next + "\": " + isDirectory,
                   "Failed to write " + next + ": " + isDirectory,
                   "Failed to write UBI volume checksum reference files."},
                  eFlashing);
}

TEST(Refusals, OfADeviceThatRunsAnotherSetThanItWouldBoot) {
    World world;
    rovusim::saveDevice(world.device.directory, {"RV-20", "3.10.49-2", "2.4.1", 1024, 1, 0, ""});
    expectRefusal(world, {"Inconsistent state between bootswitcher and running kernel."}, eEarly);
}

TEST(Refusals, OfScriptsThatFail) {
    const struct {
        std::string script;
        When when;
    } rows[] = {{"_prepare", eEarly}, {"before", eEarly}, {"pre", eFlashing}, {"post", eFlashing}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        World world;
        for (TarMembers* members : {&world.update.scripts, &world.update.images["kernel"].members}) {
            for (auto& member : *members)
                if (member.first == row.script) member.second = "exit 3\n";
        }
        expectRefusal(world, {"Failed to run script \"/tmp/rovu/" + row.script + "\""}, row.when);
    }
}

TEST(Refusals, OfCommandsThatFail) {
    const struct {
        const char *failure, *message;
        When when;
    } rows[] = {
        {"fw_printenv=exit:1", "Failed to read bootswitcher state (0, 1).", eEarly},
        {"md5sum:1=exit:1", "Failed to calculate overlay MD5 sum (0, 1).", eEarly},
        {"fw_setenv=exit:3", "Failed to run fw_setenv (0, 3)", eFlashing},
        {"fw_setenv=missing", "Failed to run fw_setenv (0, 127)", eFlashing},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failure);
        World world;
        world.device.failCall(row.failure);
        expectRefusal(world, {row.message}, row.when);
    }
}

// The report of the failure is lost where there is no room for it.
TEST(Refusals, OfADownloadThatFillsTmpKeepTheLastReport) {
    // Bytes of /tmp: too few for the scripts' tar, for the first image, for most of the second, and for its end.
    for (const uint64_t room : {12288U, 100000U, 200000U, 430080U}) {
        SCOPED_TRACE(room);
        rovusim::DeviceOptions options;
        options.tmpBytes = room;
        World world({"_prepare", "kernel", "rootfs"}, options);
        const Outcome outcome = world.run();
        EXPECT_EQ(outcome.status, 1);
        std::smatch failed;
        const std::regex warning("CURL download failed after ([0-9]+) bytes: \\(23\\) ");
        ASSERT_TRUE(std::regex_search(outcome.messages, failed, warning)) << outcome.messages;
        EXPECT_LE(std::stoull(failed.str(1)), room);
        EXPECT_NE(world.device.state().find("downloading "), std::string::npos);
        EXPECT_FALSE(world.device.has("/tmp/rovu"));
        world.expectUntouchedBoot();
    }
}
