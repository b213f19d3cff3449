// Runs that are to do less than all, or things in another order.

#include "support/crypto.h"
#include "world.h"

#include <cerrno>
#include <unistd.h>

namespace {

// The states of the commands, by their numbers as hexadecimal digits, each once for as long as it lasts.
std::string statesOf(const Device& device) {
    const std::string all =
        "1initializing:4checking dependencies:5downloading scripts:6running preparation scripts:"
        "7downloading images:8running scripts:9flashing images:aflashing overlay:"
        "bswitching volume:ccomplete:";
    std::string states;
    for (const std::string& command : device.commands()) {
        const char number = all[all.find(command.substr(0, command.find(':') + 1)) - 1];
        if (states.empty() || states.back() != number) states += number;
    }
    return states;
}

enum Ending { eAtOnce, eWithMessage, eWithSwitch };

const char kAll[] = "_prepare before kernel between rootfs", kEach[] = "_prepare before pre post between";
const char kScripts[] = "_prepare before between";
const Field kNoClone = {"", "clone_overlay", "0"},
            kOldKernel = {"rootfs", "dep", "{{'kernel','3.10','3.11'}}"};
const Field kKernelMay = {"kernel", "update", "'optional'"}, kRootfsMay = {"rootfs", "update", "'optional'"};

// Steps, changes and options; states, scripts that ran, volumes written, ending, and files fetched: their
// initials.
const Table<std::string, std::vector<Field>, std::string, const char*, const char*, const char*, Ending,
            const char*>
    kRows = {{kAll, {}, "-M", "145678a989c", kEach, "krd", eWithMessage, "skr"},
             {kAll, {}, "-D", "14a9c", "", "", eWithMessage, ""},
             {kAll, {}, "-D -M", "14a9c", "", "", eWithMessage, ""},
             {"exit_success _prepare kernel", {}, "", "1457c", "", "", eAtOnce, "sk"},
             {"_prepare exit_success kernel", {}, "", "14567c", "_prepare", "", eAtOnce, "sk"},
             {"before exit_success kernel", {}, "", "14578c", "before", "", eAtOnce, "sk"},
             {"kernel exit_success between", {}, "", "1457a9c", "pre post", "kd", eAtOnce, "sk"},
             {"a/exit_success", {}, "", "1458bc", "a/exit_success", "", eWithSwitch, "s"},
             {"_a", {}, "", "1456bc", "_a", "", eWithSwitch, "s"},
             {"sub/_a", {}, "", "1456bc", "sub/_a", "", eWithSwitch, "s"},
             {"_sub/a", {}, "", "1458bc", "_sub/a", "", eWithSwitch, "s"},
             {"a _b c", {}, "", "1458bc", "a _b c", "", eWithSwitch, "s"},
             {"kernel _a", {}, "", "1457a98bc", "pre post _a", "kd", eWithSwitch, "sk"},
             {"", {}, "", "14bc", "", "", eWithSwitch, ""},
             {"kernel", {kNoClone}, "", "1479bc", "pre post", "k", eWithSwitch, "k"},
             {kAll, {kKernelMay}, "", "145678a989bc", kEach, "krd", eWithSwitch, "skr"},
             {kAll, {kKernelMay, kOldKernel}, "", "145678a9bc", kScripts, "rd", eWithSwitch, "sr"},
             {kAll, {kKernelMay, kRootfsMay}, "", "14568bc", kScripts, "", eWithSwitch, "s"}};

}  // namespace

TEST(Runs, DoWhatTheirSpecAndOptionsSay) {
    for (const auto& [steps, fields, options, states, trace, written, ending, fetched] : kRows) {
        SCOPED_TRACE(steps + " with " + std::to_string(fields.size()) + " changes " + options);
        World world(steps);
        for (const Field& field : fields)
            world.set(field);
        const Outcome outcome = world.run("-v " + options);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(statesOf(world.device), states);
        EXPECT_EQ(world.trace(), trace);
        EXPECT_EQ(world.written(), written);
        EXPECT_EQ(world.device.waits(), ending == eWithSwitch    ? " 2 1 5 5"
                                        : ending == eWithMessage ? " 2"
                                                                 : "");
        EXPECT_EQ(outcome.said("Switching over uboot-env to active set 1..."), ending != eAtOnce);
        EXPECT_EQ(outcome.said("Update completed"), ending != eAtOnce);
        EXPECT_EQ(world.device.bootswitcher(), ending == eWithSwitch ? "0A0A01" : "0A0A00");
        if (ending != eWithSwitch) world.expectUntouchedBoot();
        EXPECT_EQ(world.device.state(), "complete");
        EXPECT_FALSE(world.device.has("/tmp/rovu"));
        std::string requests = "/spec 200\n";
        for (const char initial : std::string(fetched))
            requests += initial == 's'   ? "/scripts 200\n"
                        : initial == 'k' ? "/kernel 200\n"
                                         : "/rootfs 200\n";
        EXPECT_EQ(world.web.requests(), requests);
    }
}

TEST(Runs, DryOneOnlyLooksAndAnnouncesTheRest) {
    World world;
    const Outcome outcome = world.run("-D -v");
    std::string tools;
    for (const std::string& command : world.device.commands())
        tools += split(command.substr(command.find(": ") + 2), ' ')[0] + " ";
    EXPECT_EQ(tools, "fw_printenv readplatform.sh readplatform.sh ubinfo md5sum ubinfo ubinfo ubinfo rm ");
    for (const char* message :
         {"Running preparation script \"_prepare\"...", "Running script \"before\"...",
          "Running pre-installation script \"pre\"...", "Running post-installation script \"post\"...",
          "Extracting image \"kernel.img\"...", "Flashing image \"/tmp/rovu/kernel.img\" to UBI volume 3..."})
        EXPECT_TRUE(outcome.said(message)) << message;
}

TEST(Runs, KernelReleaseCountsUpToItsFourthSeparator) {
    const Table<const char*, std::string> rows = {
        {"3.10.49", "3.10.49.0"},     {"3.10.49-2", "3.10.49.2"},   {"3.10.49-2-xyz", "3.10.49.2"},
        {"3.10.49.1.2", "3.10.49.1"}, {"3-10-49-2-1", "3.10.49.2"}, {"3.10.49-xyz", ""},
        {"3.10-xyz-1-2", ""}};
    for (const auto& [release, version] : rows) {
        SCOPED_TRACE(release);
        rovusim::DeviceOptions options;
        options.kernelRelease = release;
        const Outcome outcome = World("", options).run("-D -v");
        EXPECT_EQ(outcome.status, version.empty() ? 1 : 0);
        const std::string refusal = "Failed to parse kernel release number: " + std::to_string(EILSEQ);
        const std::string versions =
            "Installed versions: kernel " + version + ", rootfs 2.4.1.0\nNo image to update.";
        EXPECT_TRUE(outcome.said(version.empty() ? refusal : versions)) << outcome.messages;
    }
}

TEST(Runs, SpecOfExactlyTheLimitIsTaken) {
    World world;
    world.publish();
    const std::string filler(8192 - world.spec().size(), '\n');
    world.publish(signedText(world.spec().substr(0, world.spec().rfind("--")) + filler));
    EXPECT_EQ(world.spec().size(), 8192U);
    EXPECT_EQ(world.run("-D").status, 0);
}

TEST(Runs, KeyIsWhatTheCommandLineNamesOrNone) {
    World world;
    world.device.put("/app0/key", world.device.get("/etc/ssh/rovu_pub.pem"));
    world.device.put("/etc/ssh/rovu_pub.pem", "no key");
    EXPECT_EQ(world.run("-D -k /app0/key").status, 0);
    EXPECT_EQ(world.run("-D -k none").status, 1);
    EXPECT_EQ(world.run("-D -k NONE").messages, "Signature present but verification NOT requested\n");
    EXPECT_EQ(world.device.state(), "complete");
    world.publish(world.spec().substr(0, world.spec().rfind("--")));
    EXPECT_EQ(world.run("-D -k NONE").status, 0);
}

TEST(Runs, UnencryptedImageMayStandInADirectoryOfItsTar) {
    World world;
    world.update.fileKey = "";
    world.set({"", "encr_key_offset", "-7"});
    world.update.images["rootfs"].members[0].first = "images/rootfs.img";
    EXPECT_EQ(world.run().status, 0);
    EXPECT_EQ(world.written(), "krd");
}

TEST(Runs, RecordIsTakenFromTheSecondFileIfTheFirstIsDamagedAndBegunIfNeitherIsThere) {
    for (const std::string& second : {referenceText("0 other\n"), std::string("damaged too")}) {
        World world("");
        world.device.put("/app0/.ubiRefChk1", "damaged");
        world.device.put("/app0/.ubiRefChk2", second);
        EXPECT_EQ(world.run().status, 0);
        EXPECT_EQ(world.device.get("/app0/.ubiRefChk1"),
                  second == "damaged too" ? referenceText("") : second);
    }
}
