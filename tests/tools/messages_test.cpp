// What the tools say when something is wrong: what happened, where, and what to do. Nothing waits, and nothing is made.

#include "pack_shell.h"

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class Messages : public PackShell {
protected:
    Messages() {
        put("m.lua", kTwoImages);
        put("k.img", "kernel");
        put("r.img", std::string(5000000, 'r'));
        EXPECT_EQ(shell("$PACK keygen keys && $PACK secret secrets && $BUILD m.lua --out out && "
                        "sed 's/clone/encr_key_offset = 0, clone/' m.lua >e.lua && "
                        "$BUILD e.lua --out oute --secrets secrets"),
                  0)
            << said();
    }
};

struct Row {
    const char* name;
    const char* line;  // of a shell: the preparation, then the command
    int status;
    const char* message;  // part of it
};

const Row kManifestRows[] = {
    {"too large a number",
     "sed \"s/'r.img'/'r.img', imsize = 3000000000/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:3: entry 2: \"imsize\": is beyond 2147483647"},
    {"a number in quotes", "sed \"s/'r.img'/'r.img', imsize = '30'/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "without quotes"},
    {"too long a URL",
     "$PACK build m.lua --out t --key keys/private.pem --base-url http://h/$(printf %150s | tr ' ' u)", 2,
     "has 170 bytes, and a device takes 159: shorten --base-url"},
    {"typographic quotes", "sed \"s/'RV-20'/“RV-20”/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:1: a typographic quote"},
    {"a byte-order mark", "(printf '\\357\\273\\277'; cat m.lua) >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:1: a byte-order mark"},
    {"a byte-order mark for check", "(printf '\\357\\273\\277'; cat m.lua) >t.lua; $CHECK t.lua", 1,
     "a byte-order mark stands there; save"},
    {"a manifest for sign", "$PACK sign m.lua --key keys/private.pem", 2,
     "m.lua seems to be a manifest, of which \"rovu-pack build\" makes a spec"},
    {"a manifest for check", "$CHECK m.lua", 1, "This seems to be a manifest"},
};

const Row kVariableRows[] = {
    {"a variable that is not set",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $BUILD t.lua --out t --set imega=k.img", 2,
     "t.lua:2: vars.image is not set, but imega is; give --set image=VALUE"},
    {"a variable that is not read",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; "
     "$BUILD t.lua --out t --set image=k.img --set images=x",
     2, "--set images: nothing in t.lua reads vars.images; did you mean image?"},
    {"a variable without a value", "$BUILD m.lua --out t --set version=", 2,
     "--set version=: the value is empty"},
    {"a variable twice", "$BUILD m.lua --out t --set a=1 --set a=2", 2, "--set a=2: the name is there twice"},
    {"a manifest with variables for check", "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $CHECK t.lua", 1,
     "This seems to be a manifest"},
    {"a manifest with variables for inspect",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $PACK inspect t.lua", 1, "but a manifest"},
};

const Row kFileRows[] = {
    {"a folder as image", "mkdir d; sed 's/r.img/d/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:3: entry 2: \"image\": d: it is a folder"},
    {"a folder as script",
     "mkdir d; sed \"s/'k.img'/'k.img', preinst = 'd'/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:2: entry 1: \"preinst\": d: it is a folder"},
    {"a FIFO as image", "mkfifo f; sed 's/r.img/f/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "f: it is a FIFO"},
    {"a device as image", "ln -s /dev/zero z; sed 's/r.img/z/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "z: it is a device"},
    {"too large an image", "truncate -s 1T s; sed 's/r.img/s/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "no tar of an update has more than 2147483647"},
    {"a link out of the folder as image",
     "mkdir d; ln -s ../r.img d; cp m.lua k.img d; $BUILD d/m.lua --out t", 2,
     "d/m.lua:3: entry 2: \"image\": d/r.img: a link leads out of the manifest's folder, to /"},
    {"a file in a folder that is a link",
     "mkdir d; ln -s ../keys d/l; "
     "sed \"s:'k.img':'k', files = { k = 'l/private.pem' }:\" m.lua >d/m.lua; $BUILD d/m.lua --out t",
     2, "entry 1: \"image\": d/l/private.pem: a link leads out"},
    {"a link that is to be followed",
     "mkdir d; ln -s ../r.img d; cp m.lua k.img d; $BUILD d/m.lua --follow-links --out d/o", 0, "rootfs.tar"},
    {"a link within the folder", "ln -s r.img f; sed 's/r.img/f/' m.lua >t.lua; $BUILD t.lua --out d", 0,
     "rootfs.tar"},
    {"a file elsewhere that is no link",
     "mkdir d; cp k.img d; sed \"s:'r.img':'r.img', files = { ['r.img'] = '../r.img' }:\" m.lua >d/m.lua; $BUILD d/m.lua --out d/o",
     0, "rootfs.tar"},
    {"a FIFO as manifest", "mkfifo f; $BUILD f --out t", 2, "f: it is a FIFO"},
    {"a FIFO as tar", "rm out/kernel.tar; mkfifo out/kernel.tar; $CHECK out/update.lua --files out", 1,
     "out/kernel.tar: it is a FIFO"},
    {"a truncated tar", "truncate -s 1024000 out/rootfs.tar; $CHECK out/update.lua --files out", 1,
     "out/rootfs.tar is damaged, and most likely not whole"},
    {"a truncated tar of two blocks",
     "truncate -s 512 out/rootfs.tar; $CHECK out/update.lua --files out; status=$?; "
     "cat said | grep encrypted-without-key && exit 9; exit $status",
     1, "out/rootfs.tar is damaged, and most likely not whole"},
    {"an image twice in a tar, the right one last",
     "mkdir d; echo old >d/k.img; tar -cf out/kernel.tar -C d k.img; tar -rf out/kernel.tar k.img; "
     "$CHECK out/update.lua --files out; status=$?; cat said | grep image_md5 && exit 9; exit $status",
     1, "out/kernel.tar has the digest"},
    {"a truncated encrypted tar",
     "truncate -s 1024000 oute/rootfs.tar; $CHECK oute/update.lua --files oute --secrets secrets", 1,
     "oute/rootfs.tar: the key is wrong, or the file is not whole"},
    {"a tar that was truncated before its encryption",
     "hex() { od -An -v -tx1 | tr -d ' \\n'; }; head -c 1024000 out/rootfs.tar | openssl enc -aes-256-cbc "
     "-K $(head -c 32 secrets | hex) -iv $(tail -c 16 secrets | hex) >oute/rootfs.tar; "
     "$CHECK oute/update.lua --files oute --secrets secrets",
     1, "oute/rootfs.tar is damaged, and most likely not whole: "},
    {"a folder in a tar",
     "mkdir -p d/r.img; tar -cf out/rootfs.tar -C d r.img; $CHECK out/update.lua --files out", 1,
     "\"r.img\" of out/rootfs.tar is a folder"},
};

const Row kOptionRows[] = {
    {"a mistyped option", "$PACK build m.lua --out t --keys keys/private.pem --base-url http://h", 2,
     "rovu-pack build: unknown option --keys; did you mean --key?"},
    {"a mistyped command", "$PACK chekc m.lua", 2, "unknown command \"chekc\"; did you mean \"check\"?"},
    {"one file too many", "$PACK check a b", 2, "one argument too many: \"b\""},
    {"a missing option", "$PACK build m.lua --out t --base-url http://h", 2,
     "rovu-pack build: one of --key and --unsigned is required"},
    {"no key file", "$BUILD e.lua --out t --secrets no", 2, "--secrets: no: No such file"},
    {"no key file for check", "$CHECK out/update.lua --files out --secrets no", 2,
     "--secrets: no: No such file"},
    {"a FIFO as key", "mkfifo f; $PACK sign out/update.lua --key f", 2, "--key: f: it is a FIFO"},
    {"a FIFO as pass phrase", "mkfifo f; $PACK sign out/update.lua --key keys/private.pem --key-pass file:f",
     2, "--key-pass file:f: it is a FIFO"},
    {"a FIFO as key file", "mkfifo f; $PACK secret f", 2, "f: it is a FIFO"},
    {"a device as key file for check", "$CHECK out/update.lua --files out --secrets /dev/zero", 2,
     "/dev/zero: it is a device"},
    {"a key from a pipe", "cat keys/private.pem | $PACK sign out/update.lua --key /dev/stdin", 0, ""},
    {"a key that others can read", "(umask 0; cat keys/private.pem >f); $PACK sign out/update.lua --key f", 0,
     "rovu-pack sign: warning: the private key f can be read by others; chmod go= f"},
    {"a private key among the output", "cp keys/private.pem out/k; $BUILD m.lua --out out", 2,
     "--out: out/k is a private key"},
    {"a folder as key", "$PACK sign out/update.lua --key keys", 2, "--key: keys: it is a folder"},
    {"JSON of trouble", "$CHECK --json no 2>errors", 2,
     "{\n  \"error\": \"no: No such file or directory\"\n}\n"},
    {"JSON of a wrong command line", "$CHECK m.lua --json --stirct 2>errors", 2,
     "{\n  \"error\": \"unknown option --stirct; did you mean --strict?\"\n}"},
};

// A manifest, which passes for a spec in part, whose evaluation never ends.
constexpr char kLoop[] =
    "sed \"s/RV-20'/RV-20', x = 'dysfunction', y = (function() while 1 do end end)()/\" m.lua >t.lua; ";

const Row kLoopRows[] = {
    {"check", "$CHECK t.lua", 1, "evaluation-limit"},
    {"inspect", "$PACK inspect t.lua", 1, "text that is not evaluated: t.lua: evaluating it takes more"},
    {"rehearse", "$PACK rehearse t.lua --unsigned --files out --device model=RV-20,kernel=1,rootfs=1", 2,
     "rovu-pack rehearse: t.lua: evaluating it takes more than a second"},
    {"sign", "$PACK sign t.lua --key keys/private.pem", 2, "t.lua: evaluating it takes more than a second"},
    {"sign --digest", "$PACK sign t.lua --digest", 2, "t.lua: evaluating it takes more than a second"},
    {"build", "$BUILD t.lua --out t", 2, "t.lua: evaluating it takes more than a second"},
    {"a signature that is not verified", "$PACK inspect t.lua --pub keys/rovu_pub.pem", 1,
     "t.lua: not evaluated, since no key"},
};

// Names of others that would move the cursor, and add a line to the report.
constexpr char kForge[] = R"(cat >t.lua <<'END'
{ version = 1, hardware = 'm\n good\27[2A\127\194\155\195\169\255\192\175\237\160\128', clone_overlay = 0,
  'a\27[2J', 'exit_success', script_url = 'http://h/s', script_hash = '', script_dlsize = 1 }
END
)";
#define SHOWN_MODEL R"(m\n good\x1b[2A\x7f\xc2\x9bé\xff\xc0\xaf\xed\xa0\x80)"
constexpr char kForDevice[] = "$CHECK t.lua --device model=RV-20,kernel=1,rootfs=1";

const Row kForgedRows[] = {
    {"inspect", "$PACK inspect t.lua", 0, "models      " SHOWN_MODEL "\n"},
    {"a finding", kForDevice, 1,
     "refuses the update: HW model \"RV-20\" is not supported in spec \"" SHOWN_MODEL},
    {"a plan", kForDevice, 1, "refused: HW model \"RV-20\" is not supported in spec \"" SHOWN_MODEL},
    {"a table", "$CHECK t.lua $(for i in 1 2; do printf ' --device model=\\033[2J,kernel=1,rootfs=1'; done)",
     1, "\n\\x1b[2J "},
    {"a command of a plan",
     "sed -i \"s/'m.*8'/'m'/\" t.lua; $CHECK t.lua -v --device model=m,kernel=1,rootfs=1", 1,
     R"($ /bin/sh '/tmp/rovu/a\x1b[2J')"},
    {"a device's log",
     "sed -i \"s/'m.*8'/'m'/\" t.lua; mkdir d; printf x >d/s; "
     "$PACK rehearse t.lua --unsigned --files d --device model=m,kernel=1,rootfs=1",
     1, R"(Failed to extract "a\x1b[2J")"},
    {"an error", "$BUILD t.lua --out t", 2, R"(the name "a\x1b[2J")"},
    {"JSON", "$PACK inspect t.lua --json", 0, R"(m\n good\u001b[2A\u007f\u009b\u00e9\ufffd)"},
};

TEST_F(Messages, OfRovuPackSayWhatHappenedAndWhatToDo) {
    const auto expect = [this](const Row& row) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(shell(std::string("rm -rf d f t z && cp -r out o && ") + row.line), row.status) << said();
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
        EXPECT_FALSE(exists("t"));
        shell("rm -rf out && mv o out");
    };
    for (const Row& row : kManifestRows)
        expect(row);
    for (const Row& row : kVariableRows)
        expect(row);
    for (const Row& row : kFileRows)
        expect(row);
    for (const Row& row : kOptionRows)
        expect(row);
    const auto expectOf = [&expect](const char* spec, Row row) {
        const std::string line = std::string(spec) + row.line;
        row.line = line.c_str();
        expect(row);
    };
    for (const Row& row : kLoopRows)
        expectOf(kLoop, row);
    for (const Row& row : kForgedRows)
        expectOf(kForge, row);
}

#ifdef ROVU_SIM_PROGRAM
TEST_F(Messages, OfRovuSimSayWhatHappenedAndWhatToDo) {
    const std::string sim = "SIM='" ROVU_SIM_PROGRAM "' && ";
    EXPECT_EQ(shell(sim + "$SIM init dev --key no"), 1);
    EXPECT_NE(said().find("--key, no: No such file"), std::string::npos) << said();
    EXPECT_FALSE(exists("dev"));
    EXPECT_EQ(shell(sim + "$SIM init dev --key keys/rovu_pub.pem"), 0) << said();
    const std::string folder = "/tmp/rovu-messages-" + std::to_string(getpid());
    fs::create_directory(folder);
    fs::copy("/bin/true", folder + "/updater");
    EXPECT_EQ(shell(sim + "PATH=" + folder + ":$PATH $SIM run dev -- updater"), 127);
    fs::remove_all(folder);
    EXPECT_NE(said().find("the workstation has it as " + folder + "/updater: give that path"),
              std::string::npos)
        << said();
    // A kernel that forbids user namespaces.
    const std::string forbidding = "bwrap --unshare-user --disable-userns --dev-bind / / --uid ";
    EXPECT_EQ(shell(sim + "rm -rf dev; " + forbidding + "1 --gid 1 $SIM init dev"), 1);
    EXPECT_NE(said().find("user.max_user_namespaces"), std::string::npos) << said();
    EXPECT_EQ(shell(sim + "$SIM init dev && " + forbidding +
                    "0 --gid 0 $SIM run dev -- grep CapEff /proc/self/status"),
              0);
    EXPECT_NE(said().find("0000000000000000"), std::string::npos) << said();
}
#endif

}  // namespace
