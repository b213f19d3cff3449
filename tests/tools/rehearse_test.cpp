// `rovu-pack rehearse`: what it says of runs that follow their plan and of runs that do not, and that plan and run
// agree on updates drawn at random.

#include "support/program.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const std::string kKernel = "{ type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },\n";
const std::string kRootfs = "{ type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' },\n";

// Updates made of manifests, and their rehearsal.
class Rehearsals {
public:
    Rehearsals() {
        writeWholeFile(path("k.img"), "version=2.0\n" + std::string(300000, 'k'));
        writeWholeFile(path("r.img"), "version=2.0\n" + std::string(400000, 'r'));
        EXPECT_EQ(run("keygen keys"), 0);
        EXPECT_EQ(run("secret key.bin"), 0);
    }

    std::string path(const std::string& name) const { return scratch.path + "/" + name; }
    std::string out() const { return readWholeFile(path("out")); }
    std::string err() const { return readWholeFile(path("err")); }

    int run(const std::string& arguments) const {
        for (const char* name : {"out", "err"})
            fs::remove(path(name));
        const std::string line = "cd '" + scratch.path + "' && TMPDIR=. '" ROVU_PACK_PROGRAM "' " + arguments;
        return Program({"/bin/sh", "-c", line}, path("out"), path("err")).wait();
    }

    int build(const std::string& table, const std::string& url = "https://updates.example/2.0") const {
        writeWholeFile(path("m.lua"), "{ version = 1, hardware = 'RV-20', " + table + "}\n");
        const bool isEncrypted = table.find("encr_key_offset") != std::string::npos;
        return run("build m.lua --force --out www --key keys/private.pem --base-url " + url +
                   (isEncrypted ? " --secrets key.bin" : ""));
    }

    int rehearse(const std::string& devices) const {
        return run("rehearse www/update.lua --files www --pub keys/rovu_pub.pem --secrets key.bin " +
                   devices);
    }

    // What the plan says of each device.
    Json check(const std::string& devices) const {
        run("check www/update.lua --files www --pub keys/rovu_pub.pem --secrets key.bin --json " + devices);
        return Json::parse(out())["devices"];
    }

    const ScratchDir scratch;
};

const std::string kDevice = "--device model=RV-20,kernel=1.0,rootfs=1.0 ";

struct Row {
    const char* name;
    std::string table;
    const char* script;  // of the script `s`
    std::string devices;
    int status;
    const char* said;
    const char* also = "";
    const char* too = "";
    const char* url = "https://updates.example/2.0";
};

const Row kRows[] = {
    {"both images, cloned and encrypted, with scripts, of which one compares the sets and writes to the overlay",
     "clone_overlay = 1, encr_key_offset = 0, '_s', " + kKernel + "'s', " + kRootfs,
     "set -e\nfw_printenv bootswitcher; ubinfo -a\ncmp /dev/ubi0_1 /dev/ubi0_4\necho x >/etc/x\n",
     kDevice + " --device model=RV-20,kernel=1.0,rootfs=1.0,inactive-rootfs=1.0,free-lebs=9,leb-size=126976",
     0, "from set 0: as planned: updates and restarts", "from set 1: as planned: updates and restarts"},
    {"a device that refuses", kKernel + "'exit_success',", "", "--device model=RV-19,kernel=1.0,rootfs=1.0 ",
     1, "add its model only if the images are made for it", "from set 1: REFUSES: HW model \"RV-19\" is not"},
    {"a device that accepts and should not", kKernel + kRootfs, "",
     "--device refuses:model=RV-20,kernel=1.0,rootfs=1.0 ", 1, "error    device-accepts",
     "from set 1: ACCEPTS, and is named as one that refuses"},
    {"devices that should refuse, and one that stays", kKernel + "'exit_success',", "",
     "--device refuses:model=RV-19,kernel=1.0,rootfs=1.0 " + kDevice, 0,
     "RV-19, kernel 1.0, rootfs 1.0, from set 0: as planned: refuses",
     "RV-20, kernel 1.0, rootfs 1.0, from set 1: as planned: runs, and stays on its set"},
    {"a server that has no name", kKernel + kRootfs, "", kDevice, 0, "as planned", "", "",
     "http://10.20.30.40:8080/a%20b/c"},
    {"a script that fails", kKernel + "'s', " + kRootfs, "echo no room; exit 3\n", kDevice, 1,
     "from set 0: FAILS\n  s: ended with an error\n  the run ended with status 1 in state \"error\" instead of 0 in \"complete\"\n  the end",
     "no room"},
    {"a script that undoes the update", kKernel + kRootfs + "'s',",
     "echo x >/tmp/x; for v in 0 3; do ubiupdatevol /dev/ubi0_$v /tmp/x; done\n", kDevice, 1,
     "volume k1 does not hold what the plan says", "volume k0 does not hold what the plan says"},
    {"a device without the room", kKernel + kRootfs, "",
     "--device model=RV-20,kernel=1.0,rootfs=1.0,tmp=600K", 1,
     "from set 1: FAILS\n  The device RV-20 with kernel 1.0 and rootfs 1.0 has 614400 bytes in /tmp, and",
     "CURL download failed"},
    {"room for tars that are a page shorter when they are decrypted",
     "encr_key_offset = 0, " + kKernel + kRootfs, "",
     "--device model=RV-20,kernel=1.0,rootfs=1.0,tmp=1126400 --device model=RV-20,kernel=1.0,rootfs=1.0,tmp=1126399",
     1, "from set 1: as planned: updates and restarts",
     "has 1126399 bytes in /tmp, and the update needs 1126400 there"},
    {"a script that misses what it need not", kKernel + "'s', " + kRootfs,
     "python3 -c 1 || true\ngrep -P a /etc/passwd || true\n", kDevice, 1,
     "from set 1: FAILS\n  s: python3: not found in this machine's BusyBox\n  grep: has no option P in this machine's BusyBox\n"},
    {"a script that this machine understands", kKernel + "'s', " + kRootfs, "python3 -c 1\n",
     kDevice + "--host-tools", 0, "as planned"},
    {"a script for another shell", kKernel + "'s', " + kRootfs, "echo begun\na=(1)\n", kDevice, 1,
     "s, line 2: a syntax error for the shell of this machine's BusyBox"},
    {"a script without an end", kKernel + "'s', " + kRootfs, "while :; do :; done\n",
     kDevice + "--script-limit 1", 1, "FAILS\n  s ran longer than 1 s\n"},
    {"a script that waits", kKernel + "'s', " + kRootfs, "while :; do sleep 60; done\n", kDevice, 1,
     "s ran longer than 600 s"},
    {"a script that waits once", kKernel + "'s', " + kRootfs, "sleep 601\n", kDevice, 1,
     "waits of more than 600 s in: /bin/sh '/tmp/rovu/s'"},
    {"a script that does the updater's work, and takes its key", kKernel + "'s', " + kRootfs,
     "fw_setenv bootswitcher 0A0A00\nreboot\nrm /etc/ssh/rovu_pub.pem\n", kDevice, 1,
     "a script runs: fw_setenv bootswitcher", "a script runs: reboot",
     "the update removes /etc/ssh/rovu_pub.pem"},
    {"a script that ends the updater", kKernel + "'s', " + kRootfs, "killall rovu\nsleep 0.5\n", kDevice, 1,
     "the run ended with status 0 in state \"running scripts\""},
    {"a script that kills the updater", kKernel + "'s', " + kRootfs, "kill -9 $PPID\nsleep 0.5\n", kDevice, 1,
     "the run ended with status 137 in state \"running scripts\""},
    {"a new set that does not work", kKernel + kRootfs, "", kDevice + "--health 'echo ill; exit 255'", 1,
     "after the restart, the command on the new root file system ended with status 255: ill"},
    {"a script whose line is too long for a pattern", kKernel + "'s', " + kRootfs,
     "printf '%0300000d\\n' 0; exit 3\n", kDevice, 1, "from set 0: FAILS\n  s: ended with an error"},
    {"an option that musl does not know", kKernel + "'s', " + kRootfs,
     "echo 'grep: unrecognized option: P' >&2\n", kDevice, 1, "grep: has no option P in this"},
    {"a script that removes a volume that the update made",
     "clone_overlay = 1, " + kKernel + kRootfs + "'s',", "ubirmvol /dev/ubi0 -N k1_data\n",
     "--device model=RV-20,kernel=1.0,rootfs=1.0,inactive-data=missing", 1,
     "from set 0: FAILS\n  volume k1_data is missing after the run\n"},
    {"as many blocks as the one old volume has",
     "{ type = 'rootfs', update = 'mandatory', version = '2.0', image = 's' },\n'exit_success',",
     "version=2.0\n",
     "--device model=RV-20,kernel=1.0,rootfs=1.0,inactive-kernel=missing,free-lebs=1,leb-size=64K", 0,
     "from set 0: as planned: runs, and stays on its set"},
    {"an error of the check in an update that runs",
     "{ type = 'kernel', update = 'optional', version = '2.0', image = 'k.img' },\n"
     "{ type = 'rootfs', update = 'optional', version = '2.0', image = 'r.img' },\n",
     "", kDevice, 1, "error    no-mandatory-image", "from set 1: as planned: updates and restarts"},
    {"a volume that stays blank", kKernel, "", "--device model=RV-20,kernel=1.0,rootfs=1.0,inactive=blank", 1,
     "the device does not come back: set 1 cannot boot: its volume k1_root is empty"},
};

TEST(Rehearse, TellsWhetherRunsWereWhatThePlanSays) {
    const Rehearsals world;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        writeWholeFile(world.path("s"), row.script);
        writeWholeFile(world.path("_s"), row.script);
        ASSERT_EQ(world.build(row.table, row.url), 0) << world.err();
        EXPECT_EQ(world.rehearse(row.devices), row.status) << world.err();
        for (const std::string text : {row.said, row.also, row.too})
            EXPECT_NE(world.out().find(text), std::string::npos) << text << "\nis not in\n" << world.out();
    }
}

TEST(Rehearse, ARefusalForAnotherReasonThanTheDeviceIsNoGoodOne) {
    const Rehearsals world;
    ASSERT_EQ(world.build(kKernel + kRootfs), 0) << world.err();
    ASSERT_EQ(world.run("keygen other && cp other/rovu_pub.pem keys"), 0);
    EXPECT_EQ(world.rehearse("--device refuses:model=RV-19,kernel=1.0,rootfs=1.0"), 1);
    EXPECT_NE(world.out().find("from set 1: REFUSES: "), std::string::npos) << world.out();
}

TEST(Rehearse, RunsOnTheDevicesOwnRootFileSystemAndThenOnTheNewOne) {
    const Rehearsals world;
    // The root file system of a device of BusyBox, made one of a device that has no sed, and others made of that. In two
    // of them /usr is merged: /bin is a link, relative or absolute, and /sbin one to that.
    const std::string line =
        "cd '" + world.scratch.path +
        "' && image() { mksquashfs \"$1\" $2.img -noappend -all-root -quiet -no-progress; }\n"
        "merged() { cp -a tree \"$1\" && cd \"$1\" && mv bin/* usr/bin && mv sbin/* usr/sbin && rmdir bin sbin && "
        "ln -s $2 bin && ln -s /bin sbin && cd .. && image \"$1\" $3; }\n"
        "rovu-sim init dev && cp -a dev/root tree && cp keys/rovu_pub.pem tree/etc/ssh && "
        "cd tree && mv .shell bin/sh.old && find . -lname '/run/*' -delete && mv bin/sh.old bin/sh && rm bin/sed && "
        "for f in usr/sbin/rovu usr/local/bin/readplatform.sh; do echo >$f && chmod 755 $f; done && cd .. && "
        "tar -C tree -czf own.tar.gz . && image tree good && cp good.img r.img && merged host usr/bin relative && "
        "merged 'a=b c' /usr/bin absolute && cp -a tree none && rm none/bin/sh && image none none && "
        "mkdir d && cp -a tree d && image d below && "
        "cp good.img damaged.img && printf 0123456789 | dd of=damaged.img bs=1 seek=200000 conv=notrunc && "
        "cp good.img packed.img && printf c | dd of=packed.img bs=1 seek=20 conv=notrunc && "
        "unsquashfs -d bare r.img && rm bare/usr/sbin/rovu bare/etc/ssh/rovu_pub.pem && "
        "chmod 644 bare/usr/local/bin/* && image bare bare && "
        "echo >tree/etc/ssh/rovu_pub.pem && image tree otherkey && "
        "ln -sf /app0/key tree/etc/ssh/rovu_pub.pem && image tree linkedkey";
    ASSERT_EQ(Program({"/bin/sh", "-ec", line}, world.path("out"), world.path("err")).wait(), 0)
        << world.err();
    writeWholeFile(world.path("s"), "echo a | sed s/a/b/\n");
    const auto expect = [&world](const std::string& devices, int status, const std::string& said) {
        EXPECT_EQ(world.rehearse(devices), status) << world.err() << world.out();
        EXPECT_NE(world.out().find(said), std::string::npos) << said << "\nis not in\n" << world.out();
    };
    const std::string health = "--health '! sed --help && test -e /bin/cat'";
    ASSERT_EQ(world.build("'s', " + kKernel + kRootfs), 0) << world.err();
    for (const std::string root : {"own.tar.gz", "host", "a=b c/"})
        expect("--device 'model=RV-20,kernel=1.0,rootfs=1.0,root=" + root + "'", 1,
               "s: sed: not found in " + root);
    EXPECT_EQ(world.rehearse("--device model=RV-20,kernel=1.0,rootfs=1.0,root=none"), 2);
    EXPECT_NE(world.err().find("it has no /bin/sh"), std::string::npos) << world.err();
    const struct {
        const char* image;
        int status;
        const char* said;
    } kRoots[] = {
        {"good", 0, "as planned: updates and restarts\n"},
        {"relative", 0, "as planned: updates and restarts\n"},
        {"absolute", 0, "as planned: updates and restarts\n"},
        {"none", 1, "the new root file system has no /bin/sh"},
        {"below", 1, "the new root file system has all its files below /tree"},
        {"damaged", 1, "the new root file system is damaged: "},
        {"packed", 0,
         "note: the new root file system was not looked into: Filesystem uses unknown compression"},
        {"bare", 1,
         "  the new root file system has no program rovu that can be run: no update can follow\n"
         "  the new root file system has no /usr/local/bin/readplatform.sh that can be run: no update can follow\n"
         "  the new root file system has no /etc/ssh/rovu_pub.pem: no update can follow\n"},
        {"otherkey", 0, "note: the new root file system has another /etc/ssh/rovu_pub.pem than the device"},
        {"linkedkey", 0, "note: /etc/ssh/rovu_pub.pem of the new root file system was not read: cat: "}};
    for (const auto& row : kRoots) {
        fs::copy(world.path(std::string(row.image) + ".img"), world.path("r.img"),
                 fs::copy_options::overwrite_existing);
        ASSERT_EQ(world.build(kKernel + kRootfs), 0) << world.err();
        expect(kDevice + health, row.status, row.said);
    }
}

TEST(Rehearse, LeavesNothingWhenItIsInterrupted) {
    const Rehearsals world;
    // Long waits take no time; and a signal that is not heeded is followed by one that is.
    writeWholeFile(world.path("s"), "trap '' TERM INT; while :; do sleep 0.1; done\n");
    ASSERT_EQ(world.build("'s', " + kKernel + kRootfs), 0) << world.err();
    const auto entries = [&world] {
        const auto all = fs::directory_iterator(world.scratch.path);
        return std::distance(fs::begin(all), fs::end(all));
    };
    const auto before = entries();
    Program program({"/usr/bin/env", "-C", world.scratch.path, "TMPDIR=.", ROVU_PACK_PROGRAM, "rehearse",
                     "www/update.lua", "--files", "www", "--unsigned", "--device",
                     "model=RV-20,kernel=1.0,rootfs=1.0"},
                    world.path("out"), world.path("err"));
    const auto isInScript = [&world] {
        for (const auto& entry : fs::directory_iterator(world.scratch.path)) {
            const std::string calls = entry.path().string() + "/device/calls.log";
            if (readWholeFile(calls).find("sh /tmp/rovu/s") != std::string::npos) return true;
        }
        return false;
    };
    while (!isInScript() && program.isRunning())
        usleep(5000);
    ASSERT_TRUE(isInScript());
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), -SIGTERM);
    EXPECT_EQ(entries(), before);
}

// Good updates and devices, drawn by a generator whose numbers are the same on every machine.
class Draw {
public:
    explicit Draw(unsigned seed) : numbers_(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(numbers_() % limit); }
    bool once(unsigned in) { return below(in) == 0; }

    // Of an image; often it fills its pages, or all but one byte, or one byte more.
    unsigned size() {
        const unsigned any = 20000 + below(400000);
        return once(2) ? any : any / 4096 * 4096 + below(3) - 1;
    }

    std::string version() { return std::to_string(1 + below(3)) + "." + std::to_string(below(4)); }

    std::string dependency(const std::string& kind) {
        const std::string low = version();
        const std::string entry = (once(4) ? "'!" : "'") + kind + "', '" + low + "', '" + version() + "'";
        return "{ " + entry + " }";
    }

    std::string image(const std::string& kind) {
        const std::string other = kind == "kernel" ? "rootfs" : "kernel";
        std::string text =
            "{ type = '" + kind + "', version = '" + version() + "', image = '" + kind + ".img'";
        text += once(3) ? ", update = 'optional'" : ", update = 'mandatory'";
        for (const char* script : {"preinst", "postinst"}) {
            if (once(3)) text += std::string(", ") + script + " = '" + script + ".sh'";
        }
        if (once(2)) {
            text += ", dep = { " + dependency(other);
            if (once(3)) text += ", " + dependency(other);
            text += " }";
        }
        return text + " },\n";
    }

    std::string table() {
        std::string text = "clone_overlay = " + std::to_string(below(2)) + ",\n";
        if (once(2)) text += "encr_key_offset = 0,\n";
        if (once(3)) text += "'_first.sh',\n";
        const bool isKernelFirst = once(2);
        if (once(3)) text += "'before.sh',\n";
        if (!once(5)) text += image(isKernelFirst ? "kernel" : "rootfs");
        if (once(3)) text += "'sub/between.sh',\n";
        if (!once(5)) text += image(isKernelFirst ? "rootfs" : "kernel");
        if (once(3)) text += "'after.sh',\n";
        if (once(6)) text += "'exit_success',\n";
        return text;
    }

    // A kind, and what its inactive set holds.
    std::string device() {
        const char* const held[] = {"", "", "", "blank", "missing"};
        std::string text = (once(6) ? "model=RV-19,kernel=" : "model=RV-20,kernel=") + version();
        text += ",rootfs=" + version();
        for (const char* volume : {"kernel", "rootfs", "data"}) {
            const std::string content = held[below(5)];
            if (!content.empty()) text.append(",inactive-").append(volume).append("=").append(content);
        }
        if (once(2)) text += ",data=" + std::to_string(1 + below(600000));
        return text;
    }

    // About as much as is needed, and often one unit too little.
    std::string room(const Json& needed) {
        std::string text;
        const uint64_t tmp = needed["needs_tmp_bytes"],
                       lebs = needed["needs_lebs"].is_null() ? 2 : uint64_t(needed["needs_lebs"]);
        const unsigned pages = below(4);
        if (once(2)) text += ",tmp=" + std::to_string(tmp + 4096 * pages - 4096);
        if (once(2)) text += ",free-lebs=" + std::to_string(std::max<uint64_t>(lebs + below(4), 2) - 2);
        return text;
    }

private:
    std::mt19937 numbers_;
};

// ROVU_RANDOM_UPDATES names another number of them.
unsigned updatesToDraw() {
    const char* wanted = getenv("ROVU_RANDOM_UPDATES");
    return wanted == nullptr ? 12 : static_cast<unsigned>(std::strtoul(wanted, nullptr, 10));
}

const char* const kScripts[] = {"_first.sh", "before.sh",  "sub/between.sh",
                                "after.sh",  "preinst.sh", "postinst.sh"};

// What may be wrong with an update, beside the room for it.
struct Fault {
    std::string script, line;  // a script that does not do as it should
    std::string kind;          // the image whose tar was damaged
};

// How a run of that device begins to be reported.
std::string expected(const Json& device, const Fault& fault) {
    const Json& room = device["device_room"];
    const bool hasRoom = room["fits_tmp"] != false && room["fits_lebs"] != false;
    bool fails = !hasRoom;
    for (const Json& image : device["images"])
        fails |=
            image["kind"] == fault.kind && (image["outcome"] == "kept" || image["outcome"] == "promoted");
    for (const Json& step : device["plans"][0]["steps"])
        fails |= step["command"] == "/bin/sh '/tmp/rovu/" + fault.script + "'" && !fault.line.empty();
    for (const Json& volume : device["plans"][0]["boots"])
        fails |= volume["version"] == "blank" && volume["kind"] != "data";
    return hasRoom && device["accepts"] == false ? "REFUSES: " : fails ? "FAILS" : "as planned: ";
}

TEST(Rehearse, PlanAndRunAgreeOnRandomUpdates) {
    unsigned rehearsed = 0;
    for (unsigned seed = 1; rehearsed < updatesToDraw(); ++seed) {
        Draw draw(seed);
        const Rehearsals world;
        Fault fault;
        if (draw.once(4)) fault = {kScripts[draw.below(6)], draw.once(2) ? "exit 3\n" : "reboot -f\n", ""};
        for (const std::string kind : {"kernel", "rootfs"})
            writeWholeFile(world.path(kind + ".img"), std::string(draw.size(), 'i'));
        for (const char* script : kScripts)
            writeWholeFile(world.path(script), "fw_printenv\n" + (script == fault.script ? fault.line : ""));
        const std::string table = draw.table();
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + table);
        if (world.build(table) != 0) continue;  // refused by the device's reader, as any other
        ++rehearsed;
        if (draw.once(8)) fault.kind = draw.once(2) ? "kernel" : "rootfs";
        if (fs::exists(world.path("www/" + fault.kind + ".tar")))
            fs::resize_file(world.path("www/" + fault.kind + ".tar"), 1000);
        EXPECT_EQ(world.run(draw.once(10) ? "keygen other && cp other/rovu_pub.pem keys" : "--version"), 0);
        const std::string lebSize = ",free-lebs=9999,leb-size=" + std::to_string(63488U << draw.below(3));
        const std::string kinds[] = {draw.device(), draw.device()};
        Json devices = world.check("--device " + kinds[0] + lebSize + " --device " + kinds[1] + lebSize);
        std::string options;
        for (size_t i = 0; i < 2; ++i) {
            const std::string room = draw.room(devices[i]["device_room"]);
            const bool hasLebs = room.find("free-lebs") != std::string::npos;
            options += " --device " + kinds[i] + room + (hasLebs ? lebSize.substr(lebSize.rfind(',')) : "");
        }
        devices = world.check(options);
        const int status = world.rehearse(options);
        std::istringstream lines(world.out());
        size_t runs = 0;
        for (std::string line; std::getline(lines, line);) {
            const size_t at = line.find(", from set ");
            if (at == std::string::npos) continue;
            const std::string wanted = expected(devices[runs++ / 2], fault);
            EXPECT_EQ(line.substr(at + 14, wanted.size()), wanted) << options << "\n" << world.out();
            EXPECT_FALSE(status == 0 && wanted[0] != 'a');
        }
        EXPECT_EQ(runs, 4U) << world.out() << world.err();
        EXPECT_EQ(world.out().find("the plan is wrong"), std::string::npos) << options << "\n" << world.out();
    }
}

}  // namespace
