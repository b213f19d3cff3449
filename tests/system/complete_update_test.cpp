// One update from its URL to the restart, and the next one back.

#include "support/crypto.h"
#include "support/reference_file.h"
#include "world.h"

#include <regex>

namespace {

// All that the program says when it is most verbose, and the commands that it runs, each in its state.
struct Story {
    std::string messages, state;
    Strings commands;

    void say(const std::string& message) { messages += message + "\n"; }

    void run(const std::string& line) {
        say("Running shell command: " + line + "\nCommand finished with exit status 0");
        // As the command is called: without quotes, redirections and directories of programs.
        const std::regex shellOnly("'| 2>&-| > .*|^/usr/local/bin/|^/bin/");
        commands.push_back(state + ": " + std::regex_replace(line, shellOnly, ""));
    }

    void fetch(const std::string& url, const std::string& name) {
        say("Downloading " + url + " to /tmp/rovu/" + name + ", attempt 0...");
        if (name != "rovu.lua") run("sha256sum '/tmp/rovu/" + name + "'");
    }

    void extract(const std::string& announcement, const std::string& tar, const std::string& member) {
        say(announcement + " \"" + member + "\"...");
        run("tar -xf '/tmp/rovu/" + tar + "' -C '/tmp/rovu' '" + member + "'");
    }

    void script(const std::string& kind, const std::string& tar, const std::string& name) {
        extract("Running " + kind, tar, name);
        run("/bin/sh '/tmp/rovu/" + name + "'");
    }

    void flash(const std::string& volume, const std::string& id, const std::string& typeAndSize,
               const std::string& size, const std::string& image) {
        run("ubinfo '/dev/ubi0' -N '" + volume + "' 2>&-");
        say("Removing existing volume \"" + volume + "\" at index " + id + "...");
        run("ubirmvol '/dev/ubi0' -n " + id);
        say("Creating volume \"" + volume + "\" of size " + size + "...");
        run("ubimkvol '/dev/ubi0' -N '" + volume + "' -t " + typeAndSize + size);
        run("ubinfo '/dev/ubi0' -N '" + volume + "' 2>&-");
        if (image == "/tmp/rovu/_img.tmp") {
            say("Copying \"/dev/ubi0_2\" to \"" + image + "\"...");
            run("cat '/dev/ubi0_2' > '" + image + "'");
        }
        say("Flashing image \"" + image + "\" to UBI volume " + id + "...");
        run("ubiupdatevol '/dev/ubi0_" + id + "' '" + image + "'");
        say("Verifying new UBI volume " + id + "...");
        run("md5sum '/dev/ubi0_" + id + "'");
    }
};

Story storyOfTheUpdate(const std::string& url) {
    Story story;
    story.state = "initializing";
    story.run("fw_printenv bootswitcher");
    story.fetch(url + "/spec", "rovu.lua");
    story.state = "checking dependencies";
    story.run("/usr/local/bin/readplatform.sh model");
    story.run("/usr/local/bin/readplatform.sh rootfsrev");
    story.say("Installed versions: kernel 3.10.49.2, rootfs 2.4.1.0");
    story.state = "downloading scripts";
    story.fetch(url + "/scripts", "scriptTar");
    story.state = "running preparation scripts";
    story.script("preparation script", "scriptTar", "_prepare");
    story.state = "downloading images";
    story.fetch(url + "/kernel", "img0");
    story.fetch(url + "/rootfs", "img1");
    story.state = "running scripts";
    story.script("script", "scriptTar", "before");
    story.state = "flashing overlay";
    story.run("ubinfo '/dev/ubi0' -N 'k0_data' 2>&-");
    story.say("Calculate overlay MD5 sum...");
    story.run("md5sum '/dev/ubi0_2'");
    story.flash("k1_data", "5", "dynamic -s ", "380928", "/tmp/rovu/_img.tmp");
    story.state = "flashing images";
    story.script("pre-installation script", "img0", "pre");
    story.extract("Extracting image", "img0", "kernel.img");
    story.flash("k1", "3", "static -s ", "150000", "/tmp/rovu/kernel.img");
    story.script("post-installation script", "img0", "post");
    story.state = "running scripts";
    story.script("script", "scriptTar", "between");
    story.state = "flashing images";
    story.extract("Extracting image", "img1", "rootfs.img");
    story.flash("k1_root", "4", "static -s ", "260000", "/tmp/rovu/rootfs.img");
    story.say("Switching over uboot-env to active set 1...");
    story.state = "switching volume";
    story.run("fw_setenv 'bootswitcher' '0A0A01'");
    story.say("Update completed\nShutting down quorl...");
    story.state = "complete";
    story.run("killall quorl");
    story.say("Shutting down Mervane and tolk...");
    story.run("killall mervane tolk");
    story.run("killall brenlin");
    story.say("Rebooting...");
    story.run("reboot");
    story.commands.push_back("complete: rm -Rf /tmp/rovu");
    return story;
}

}  // namespace

TEST(CompleteUpdate, RunsEveryCommandInItsStateAndSaysSo) {
    World world;
    const Outcome outcome = world.run({"-vv"});
    const Story story = storyOfTheUpdate(world.web.url());
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.messages, story.messages);
    EXPECT_EQ(world.device.commands(), story.commands);
    EXPECT_EQ(world.device.waits("complete"), (Strings{"2", "1", "5", "5"}));
    EXPECT_EQ(world.trace(), (Strings{"_prepare", "before", "pre", "post", "between"}));
    EXPECT_EQ(world.web.requests(), "/spec 200\n/scripts 200\n/kernel 200\n/rootfs 200\n");
}

TEST(CompleteUpdate, LeavesAnotherSetThatBootsAndCanUpdateBack) {
    World world;
    Device& device = world.device;
    const std::string before = device.get("/app0/.ubiRefChk2");
    EXPECT_EQ(world.run().status, 0);
    EXPECT_EQ(world.written(), (Strings{"k1", "k1_root", "k1_data"}));
    EXPECT_EQ(device.bootswitcher(), "0A0A01");
    EXPECT_TRUE(rovusim::rebootRequested(device.directory));
    EXPECT_EQ(device.get("/tmp/rovu.progress"), progressFile("complete"));
    EXPECT_FALSE(device.has("/tmp/rovu"));
    const std::string kernel = md5Hex(world.kernel), rootfs = md5Hex(world.rootfs);
    const std::string newSet = kernel + " k1\n" + rootfs + " k1_root\n";
    const std::string merged = referenceFile("0123456789abcdef0123456789abcdef k0\n" + newSet);
    EXPECT_EQ(device.get("/app0/.ubiRefChk1"), merged);
    EXPECT_EQ(device.get("/app0/.ubiRefChk2"), merged);
    EXPECT_EQ(device.get("/app0/.ubiRefChk2.bak"), before);

    ASSERT_EQ(rovusim::restartDevice(device.directory, nullptr), 0);
    const Outcome back = world.run({"-v"});
    EXPECT_EQ(back.status, 0);
    EXPECT_TRUE(back.said("Installed versions: kernel 4.1.0.0, rootfs 3.0.7.0"));
    EXPECT_TRUE(back.said("Switching over uboot-env to active set 0..."));
    EXPECT_TRUE(device.volume("k0") == world.kernel && device.volume("k0_root") == world.rootfs);
    EXPECT_EQ(device.bootswitcher(), "0A0A00");
    const std::string both = kernel + " k0\n" + newSet + rootfs + " k0_root\n";
    EXPECT_EQ(device.get("/app0/.ubiRefChk2"), referenceFile(both));
    EXPECT_EQ(device.get("/app0/.ubiRefChk2.bak"), merged);
}
