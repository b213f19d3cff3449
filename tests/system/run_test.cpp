// Runs that do less than a complete update, or things in another order.

#include "support/crypto.h"
#include "support/update.h"
#include "world.h"

#include <cerrno>
#include <unistd.h>

namespace {

// The states of the commands, each once for as long as it lasts.
Strings statesOf(const Device& device) {
    Strings states;
    for (const std::string& command : device.commands()) {
        const std::string state = command.substr(0, command.find(':'));
        if (states.empty() || states.back() != state) states.push_back(state);
    }
    return states;
}

// How a run ends: by exit_success, without a switch because of its options, or with all that belongs to it.
enum Ending { eAtOnce, eWithMessage, eWithSwitch };

const char kGetScripts[] = "downloading scripts", kPrepare[] = "running preparation scripts",
           kGetImages[] = "downloading images", kScripts[] = "running scripts", kFlash[] = "flashing images",
           kOverlay[] = "flashing overlay", kSwitch[] = "switching volume";

const Strings kAllSteps = {"_prepare", "before", "kernel", "between", "rootfs"};
const Strings kAllTraces = {"_prepare", "before", "pre", "post", "between"};
const Strings kAllVolumes = {"k1", "k1_root", "k1_data"}, kKernelAndOverlay = {"k1", "k1_data"};
const Strings kAllFiles = {"scripts", "kernel", "rootfs"}, kScriptsAndKernel = {"scripts", "kernel"};

const Field kNoClone = {"", "clone_overlay", "0"}, kKernelMay = {"kernel", "update", "'optional'"},
            kRootfsMay = {"rootfs", "update", "'optional'"},
            kForOldKernel = {"rootfs", "dep", "{{'kernel','3.10','3.11'}}"};

struct Given {
    Strings steps, options = {};
    std::vector<Field> changes = {};
};

struct Result {
    Ending ending = eWithSwitch;
    Strings trace = {};    // the scripts that ran
    Strings written = {};  // the volumes that changed
    Strings fetched = {};  // besides the spec
};

struct Row {
    const char* name;
    Given given;
    Strings states;  // between "checking dependencies" and "complete"
    Result result;
};

const Row kRows[] = {
    {"-M: all but the switch",
     {kAllSteps, {"-M"}},
     {kGetScripts, kPrepare, kGetImages, kScripts, kOverlay, kFlash, kScripts, kFlash},
     {eWithMessage, kAllTraces, kAllVolumes, kAllFiles}},
    {"-D: nothing is changed", {kAllSteps, {"-D"}}, {kOverlay, kFlash}, {eWithMessage}},
    {"-D wins over -M", {kAllSteps, {"-D", "-M"}}, {kOverlay, kFlash}, {eWithMessage}},
    {"exit_success first",
     {{"exit_success", "_prepare", "kernel"}},
     {kGetScripts, kGetImages},
     {eAtOnce, {}, {}, kScriptsAndKernel}},
    {"exit_success after a preparation script",
     {{"_prepare", "exit_success", "kernel"}},
     {kGetScripts, kPrepare, kGetImages},
     {eAtOnce, {"_prepare"}, {}, kScriptsAndKernel}},
    {"exit_success after a script",
     {{"before", "exit_success", "kernel"}},
     {kGetScripts, kGetImages, kScripts},
     {eAtOnce, {"before"}, {}, kScriptsAndKernel}},
    {"exit_success after an image",
     {{"kernel", "exit_success", "between"}},
     {kGetScripts, kGetImages, kOverlay, kFlash},
     {eAtOnce, {"pre", "post"}, kKernelAndOverlay, kScriptsAndKernel}},
    {"exit_success in a directory is a script",
     {{"a/exit_success"}},
     {kGetScripts, kScripts, kSwitch},
     {eWithSwitch, {"a/exit_success"}, {}, {"scripts"}}},
    {"preparation script alone",
     {{"_a"}},
     {kGetScripts, kPrepare, kSwitch},
     {eWithSwitch, {"_a"}, {}, {"scripts"}}},
    {"preparation script in a directory",
     {{"sub/_a"}},
     {kGetScripts, kPrepare, kSwitch},
     {eWithSwitch, {"sub/_a"}, {}, {"scripts"}}},
    {"script in a directory with a preparation script's name",
     {{"_sub/a"}},
     {kGetScripts, kScripts, kSwitch},
     {eWithSwitch, {"_sub/a"}, {}, {"scripts"}}},
    {"preparation script after a script is a script",
     {{"a", "_b", "c"}},
     {kGetScripts, kScripts, kSwitch},
     {eWithSwitch, {"a", "_b", "c"}, {}, {"scripts"}}},
    {"preparation script after an image is a script",
     {{"kernel", "_a"}},
     {kGetScripts, kGetImages, kOverlay, kFlash, kScripts, kSwitch},
     {eWithSwitch, {"pre", "post", "_a"}, kKernelAndOverlay, kScriptsAndKernel}},
    {"no step", {{}}, {kSwitch}, {}},
    {"overlay not cloned",
     {{"kernel"}, {}, {kNoClone}},
     {kGetImages, kFlash, kSwitch},
     {eWithSwitch, {"pre", "post"}, {"k1"}, {"kernel"}}},
    {"optional image that a mandatory one needs",
     {kAllSteps, {}, {kKernelMay}},
     {kGetScripts, kPrepare, kGetImages, kScripts, kOverlay, kFlash, kScripts, kFlash, kSwitch},
     {eWithSwitch, kAllTraces, kAllVolumes, kAllFiles}},
    {"optional image that is not needed",
     {kAllSteps, {}, {kKernelMay, kForOldKernel}},
     {kGetScripts, kPrepare, kGetImages, kScripts, kOverlay, kFlash, kSwitch},
     {eWithSwitch, {"_prepare", "before", "between"}, {"k1_root", "k1_data"}, {"scripts", "rootfs"}}},
    {"optional images only",
     {kAllSteps, {}, {kKernelMay, kRootfsMay}},
     {kGetScripts, kPrepare, kScripts, kSwitch},
     {eWithSwitch, {"_prepare", "before", "between"}, {}, {"scripts"}}},
};

}  // namespace

TEST(Runs, DoWhatTheirSpecAndOptionsSay) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        World world(row.given.steps);
        for (const Field& field : row.given.changes)
            world.set(field);
        Strings options = row.given.options, states = row.states;
        options.push_back("-v");
        states.insert(states.begin(), {"initializing", "checking dependencies"});
        states.push_back("complete");
        const Outcome outcome = world.run(options);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(statesOf(world.device), states);
        EXPECT_EQ(world.trace(), row.result.trace);
        EXPECT_EQ(world.written(), row.result.written);
        const Strings waits[] = {{}, {"2"}, {"2", "1", "5", "5"}};  // by ending
        EXPECT_EQ(world.device.waits(), waits[row.result.ending]);
        EXPECT_EQ(outcome.said("Switching over uboot-env to active set 1..."), row.result.ending != eAtOnce);
        EXPECT_EQ(outcome.said("Update completed"), row.result.ending != eAtOnce);
        EXPECT_EQ(world.device.bootswitcher(), row.result.ending == eWithSwitch ? "0A0A01" : "0A0A00");
        if (row.result.ending != eWithSwitch) world.expectUntouchedBoot();
        EXPECT_EQ(world.device.state(), "complete");
        EXPECT_FALSE(world.device.has("/tmp/rovu"));
        std::string requests = "/spec 200\n";
        for (const std::string& file : row.result.fetched)
            requests += "/" + file + " 200\n";
        EXPECT_EQ(world.web.requests(), requests);
    }
}

TEST(Runs, DryOneOnlyLooksAndAnnouncesTheRest) {
    World world;
    const Outcome outcome = world.run({"-D", "-v"});
    Strings tools;
    for (const std::string& command : world.device.commands())
        tools.push_back(split(command.substr(command.find(": ") + 2), ' ')[0]);
    EXPECT_EQ(tools, (Strings{"fw_printenv", "readplatform.sh", "readplatform.sh", "ubinfo", "md5sum",
                              "ubinfo", "ubinfo", "ubinfo", "rm"}));
    for (const char* message :
         {"Running preparation script \"_prepare\"...", "Running script \"before\"...",
          "Running pre-installation script \"pre\"...", "Running post-installation script \"post\"...",
          "Extracting image \"kernel.img\"...", "Flashing image \"/tmp/rovu/kernel.img\" to UBI volume 3..."})
        EXPECT_TRUE(outcome.said(message)) << message;
}

TEST(Runs, KernelReleaseCountsUpToItsFourthSeparator) {
    const struct {
        const char* release;
        std::string version;  // empty: it is refused
    } rows[] = {
        {"3.10.49", "3.10.49.0"},     {"3.10.49-2", "3.10.49.2"},   {"3.10.49-2-xyz", "3.10.49.2"},
        {"3.10.49.1.2", "3.10.49.1"}, {"3-10-49-2-1", "3.10.49.2"}, {"3.10.49-xyz", ""},
        {"3.10-xyz-1-2", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.release);
        rovusim::DeviceOptions options;
        options.kernelRelease = row.release;
        const Outcome outcome = World({}, options).run({"-D", "-v"});
        const std::string refusal = "Failed to parse kernel release number: " + std::to_string(EILSEQ);
        const std::string versions =
            "Installed versions: kernel " + row.version + ", rootfs 2.4.1.0\nNo image to update.";
        EXPECT_EQ(outcome.status, row.version.empty() ? 1 : 0);
        EXPECT_TRUE(outcome.said(row.version.empty() ? refusal : versions)) << outcome.messages;
    }
}

TEST(Runs, SpecOfExactlyTheLimitIsTaken) {
    World world;
    world.publish();
    const std::string filler(8192 - world.spec().size(), '\n');
    world.publish(signedText(world.spec().substr(0, world.spec().rfind("--")) + filler));
    EXPECT_EQ(world.spec().size(), 8192U);
    EXPECT_EQ(world.run({"-D"}).status, 0);
}

TEST(Runs, KeyIsWhatTheCommandLineNamesOrNone) {
    World world;
    world.device.put("/app0/key", world.device.get("/etc/ssh/rovu_pub.pem"));
    world.device.put("/etc/ssh/rovu_pub.pem", "no key");
    EXPECT_EQ(world.run({"-D", "-k", "/app0/key"}).status, 0);
    EXPECT_EQ(world.run({"-D", "-k", "none"}).status, 1);
    EXPECT_EQ(world.run({"-D", "-k", "NONE"}).messages, "Signature present but verification NOT requested\n");
    EXPECT_EQ(world.device.state(), "complete");
    world.publish(world.spec().substr(0, world.spec().rfind("--")));
    EXPECT_EQ(world.run({"-D", "-k", "NONE"}).status, 0);
}

TEST(Runs, UnencryptedImageMayStandInADirectoryOfItsTar) {
    World world;
    world.update.fileKey = "";
    world.set({"", "encr_key_offset", "-7"});
    world.update.images["rootfs"].members[0].first = "images/rootfs.img";
    EXPECT_EQ(world.run().status, 0);
    EXPECT_EQ(world.written(), kAllVolumes);
}

TEST(Runs, SecondReferenceFileReplacesADamagedFirst) {
    const struct {
        std::string second, written;
    } rows[] = {{referenceFile("0 other\n"), referenceFile("0 other\n")}, {"damaged too", referenceFile("")}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        World world(Strings{});
        world.device.put("/app0/.ubiRefChk1", "damaged");
        world.device.put("/app0/.ubiRefChk2", row.second);
        EXPECT_EQ(world.run().status, 0);
        EXPECT_EQ(world.device.get("/app0/.ubiRefChk1"), row.written);
    }
}
