// The command line, and the exit paths before a run begins.

#include "world.h"

#include <cerrno>
#include <regex>

namespace {

const std::string kUsage =
    "Usage: rovu [options] UPGRADE_URL\n\nOptions:\n\t-k key  Use this public key file to verify the FW update spec.\n\t        The default is /etc/ssh/rovu_pub.pem. If key is set to NONE, no signature verification\n\t        will be performed.\n\t-h      Show help.\n\t-v      Verbose.\n\t-D      Dry run only. Do not download, run, flash anything.\n\t-M      Moist run only. Do everything other than switch bootloader and reboot.\n\n";

}  // namespace

TEST(CommandLine, IsReadFromLeftToRightBeforeAnyEffect) {
    const std::string usageWithKey =
        std::regex_replace(kUsage, std::regex("/etc/ssh/rovu_pub.pem"), "/a/key");
    const std::string missing = "Argument missing. Use -h for help.\n";
    const struct {
        Strings args;
        int status;
        std::string errors, messages;
    } rows[] = {
        {{"-h"}, 0, kUsage, ""},
        {{"-k", "/a/key", "-h"}, 0, usageWithKey, ""},
        {{"-h", "-k", "/a/key"}, 0, kUsage, ""},
        {{"-h", "-x"}, 0, kUsage, ""},
        {{"-x", "-h"}, 1, ": invalid option -- 'x'\n", "Bad option \"-x\". Use -h for help.\n"},
        {{"-k"}, 1, ": option requires an argument -- 'k'\n", "Bad option \"-k\". Use -h for help.\n"},
        {{}, 1, "", missing},
        {{"-v"}, 1, "", missing},
        {{"-D", "-M", "-k", "NONE"}, 1, "", missing},
    };
    Device device;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        const Outcome outcome = device.run(row.args);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(std::regex_replace(outcome.err, std::regex("^/.*rovu:"), ":"), row.errors);
        EXPECT_EQ(outcome.messages, row.messages);
        EXPECT_TRUE(device.commands().empty());
        EXPECT_FALSE(device.has("/tmp/rovu") || device.has("/tmp/rovu.progress"));
    }
}

TEST(CommandLine, LeavesTheDirectoryOfAnotherRunAlone) {
    World world;
    for (const char* file : {"/tmp/rovu/rovu.lua", "/tmp/rovu.progress"})
        world.device.put(file, "another run's");
    const Outcome outcome = world.run({"-vv"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.messages, "Failed to create directory \"/tmp/rovu\": " + std::to_string(EEXIST) + "\n");
    for (const char* file : {"/tmp/rovu/rovu.lua", "/tmp/rovu.progress"})
        EXPECT_EQ(world.device.get(file), "another run's");
    EXPECT_TRUE(world.device.commands().empty());
}

TEST(CommandLine, EachOfTwoVerboseOptionsAddsALevel) {
    World world;
    const std::regex line(
        "(ROVU \\[app/rovugrade|DOWNLD \\[common/downloader|UBI \\[common/ubi_tools|UTIL "
        "\\[common/util):[0-9]+, [0-9]{2}/[0-9]{2}-[0-9]{2}:[0-9]{2}:[0-9]{2}\\]: [^\\n]+\\n");
    const struct {
        Strings options;
        bool announces, debugs;
    } rows[] = {{{"-D"}, false, false},
                {{"-D", "-v"}, true, false},
                {{"-D", "-vv"}, true, true},
                {{"-Dvvv"}, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.options));
        Strings args = world.args(row.options);
        args.insert(args.end(), {"another", "NONE"});  // what follows the URL has no effect
        const Outcome outcome = world.device.run(args);
        EXPECT_EQ(outcome.said("Update completed"), row.announces);
        EXPECT_EQ(outcome.said("Running shell command: fw_printenv bootswitcher"), row.debugs);
        EXPECT_EQ(outcome.err.find("> GET /spec") != std::string::npos, row.debugs);
        EXPECT_EQ(std::regex_replace(outcome.out, line, ""), "");
    }
}
