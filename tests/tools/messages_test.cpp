// What the tools say when something is wrong: what happened, where, and what to do. Nothing waits, and nothing is made.

#include "pack_shell.h"

namespace {

// Names of others that would move the cursor, and add a line to the report.
constexpr char kForged[] =
    R"({ version = 1, hardware = 'm\n good\27[2A\127\194\155\195\169\255\192\175\237\160\128', clone_overlay = 0,
  'a\27[2J', 'exit_success', script_url = 'http://h/s', script_hash = '', script_dlsize = 1 })";

// Its evaluation never ends; added to a manifest, which passes for a spec in part.
constexpr char kLoop[] = "{ x = 'dysfunction', y = (function() while 1 do end end)(),";

class Messages : public PackShell {
protected:
    Messages() {
        put("m.lua", kTwoImages);
        put("s.lua", kSmallSpec);
        put("forged.lua", kForged);
        put("loop.lua", kLoop + std::string(kTwoImages + 1));
        put("k.img", "kernel");
        put("r.img", std::string(5000000, 'r'));
        EXPECT_EQ(shell("$PACK keygen keys && $PACK secret secrets && $BUILD m.lua --out out && "
                        "sed 's/clone/encr_key_offset = 0, clone/' m.lua >e.lua && "
                        "$BUILD e.lua --out oute --secrets secrets"),
                  0)
            << said();
    }
};

#define LOOP "cp loop.lua t.lua; "
#define FORGE "cp forged.lua t.lua; "
#define SHOWN_MODEL R"(m\n good\x1b[2A\x7f\xc2\x9bé\xff\xc0\xaf\xed\xa0\x80)"
#define KIND "model=RV-20,kernel=1,rootfs=1"
#define DEVICE "$CHECK out/update.lua --device "
#define PAGE "echo '<!doctype html>404' >"
constexpr char kLimits[] = "t.lua: evaluating it takes more than a second";
constexpr char kTakeOut[] = "remove functions and long tables";
constexpr char kRegular[] = "a regular file is required";
constexpr char kManifestAdvice[] = "check the spec that \"rovu-pack build\" makes of it";
constexpr char kCopyAgain[] = "Copy the file again, and compare its size with the original's.";

struct Row {
    const char* name;
    const char* line;  // of a shell: the preparation, then the command
    int status;
    const char* where;
    const char* what;
    const char* todo = "";
};

const Row kRows[] = {
    // manifests
    {"too large a number",
     "sed \"s/'r.img'/'r.img', imsize = 3000000000/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:3: entry 2: \"imsize\"", "numbers end at 2147483647", "Give the size in bytes"},
    {"a number in quotes", "sed \"s/'r.img'/'r.img', imsize = '30'/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:3: entry 2: \"imsize\"", "a whole number", "without quotes is required"},
    {"too long a URL",
     "$PACK build m.lua --out t --key keys/private.pem --base-url http://h/$(printf %150s | tr ' ' u)", 2,
     "m.lua:2: entry 1: \"url\"", "has 170 bytes, and a device takes 159", "shorten --base-url"},
    {"typographic quotes", "sed \"s/'RV-20'/“RV-20”/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:1: ", "a typographic quote", "write plain quotes"},
    {"a byte-order mark", "(printf '\\357\\273\\277'; cat m.lua) >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:1: ", "a byte-order mark", "save the file without one"},
    {"a byte-order mark for check", "(printf '\\357\\273\\277'; cat m.lua) >t.lua; $CHECK t.lua", 1,
     "t.lua:1", "a byte-order mark", "save the file without one"},
    {"a manifest for sign", "$PACK sign m.lua --key keys/private.pem", 2, "m.lua", "seems to be a manifest",
     "of which \"rovu-pack build\" makes a spec"},
    {"a manifest for check", "$CHECK m.lua", 1, "m.lua",
     "Parsing of FW update spec file failed: 56 (does not evaluate)", kManifestAdvice},
    {"a variable that is not set",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $BUILD t.lua --out t --set imega=k.img", 2,
     "t.lua:2: ", "vars.image is not set, but imega is", "give --set image=VALUE"},
    {"a variable that is not read",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $BUILD t.lua --out t --set image=k.img --set images=x", 2,
     "--set images: ", "nothing in t.lua reads vars.images", "did you mean image?"},
    {"a variable without a value", "$BUILD m.lua --out t --set version=", 2,
     "--set version=: ", "the value is empty", "give one"},
    {"a variable twice", "$BUILD m.lua --out t --set a=1 --set a=2", 2,
     "--set a=2: ", "the name is given twice", "keep one"},
    {"a manifest with variables for check", "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $CHECK t.lua", 1,
     "t.lua:2", "attempt to index global 'vars'", kManifestAdvice},
    {"a manifest with variables for inspect",
     "sed \"s/'k.img'/vars.image/\" m.lua >t.lua; $PACK inspect t.lua", 1,
     "t.lua: ", "not a spec, but a manifest", "which reads what \"build --set\" gives"},
    {"files that are no pairs",
     "sed \"s/'k.img'/'k.img', files = { 'x' }/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:2: entry 1: \"files\"", "pairs such as ['before.sh'] = '../common/before.sh' are required"},
    {"a tar without a script", "sed \"s/clone/script_url = 'u', clone/\" m.lua >t.lua; $BUILD t.lua --out t",
     2, "t.lua:1: \"script_url\"", "no script needs a tar", "take it out"},
    {"one URL for two", "sed \"s,'mandatory',&\\, url = 'http://h/k',\" m.lua >t.lua; $BUILD t.lua --out t",
     2, "t.lua:3: entry 2: \"url\"", "two files of the update are called \"k\"", "rename one"},
    {"a URL elsewhere", "sed \"s,'mandatory',&\\, url = 'http://g/k',\" m.lua >t.lua; $BUILD t.lua --out t",
     2, "t.lua:2: entry 1: \"url\"", "is not a file name after http://h/", "give one, or another --base-url"},
    {"a variable without a name", "$BUILD m.lua --out t --set 1x=2", 2,
     "--set 1x=2: ", "does not begin with a digit"},
    {"a spec that is too long", "printf '{ x = 1,%8192s}' '' >f; $PACK sign f --key keys/private.pem", 2,
     "sign: f: ", "and a device takes 8192", "take comments out"},

    // files
    {"a folder as image", "mkdir d; sed 's/r.img/d/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:3: entry 2: \"image\": d", "it is a folder", kRegular},
    {"a folder as script",
     "mkdir d; sed \"s/'k.img'/'k.img', preinst = 'd'/\" m.lua >t.lua; $BUILD t.lua --out t", 2,
     "t.lua:2: entry 1: \"preinst\": d", "it is a folder", kRegular},
    {"a FIFO as image", "mkfifo f; sed 's/r.img/f/' m.lua >t.lua; $BUILD t.lua --out t", 2, "\"image\": f",
     "it is a FIFO", kRegular},
    {"a device as image", "ln -s /dev/zero z; sed 's/r.img/z/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "\"image\": z", "it is a device", kRegular},
    {"too large an image", "truncate -s 1T s; sed 's/r.img/s/' m.lua >t.lua; $BUILD t.lua --out t", 2,
     "\"image\": s", "it has 1099511627776 bytes", "no tar of an update has more than 2147483647"},
    {"a link out of the folder as image",
     "mkdir d; ln -s ../r.img d; cp m.lua k.img d; $BUILD d/m.lua --out t", 2,
     "d/m.lua:3: entry 2: \"image\": d/r.img", "a link leads out of the manifest's folder, to /",
     "copy the file, or give --follow-links"},
    {"a file in a folder that is a link",
     "mkdir d; ln -s ../keys d/l; "
     "sed \"s:'k.img':'k', files = { k = 'l/private.pem' }:\" m.lua >d/m.lua; $BUILD d/m.lua --out t",
     2, "entry 1: \"image\": d/l/private.pem", "a link leads out", "copy the file"},
    {"a link that is to be followed",
     "mkdir d; ln -s ../r.img d; cp m.lua k.img d; $BUILD d/m.lua --follow-links --out d/o", 0, "rootfs.tar",
     ""},
    {"a link within the folder", "ln -s r.img f; sed 's/r.img/f/' m.lua >t.lua; $BUILD t.lua --out d", 0,
     "rootfs.tar", ""},
    {"a file elsewhere that is no link",
     "mkdir d; cp k.img d; sed \"s:'r.img':'r.img', files = { ['r.img'] = '../r.img' }:\" m.lua >d/m.lua; $BUILD d/m.lua --out d/o",
     0, "rootfs.tar", ""},
    {"a FIFO as manifest", "mkfifo f; $BUILD f --out t", 2, "build: f", "it is a FIFO", kRegular},
    {"a folder that nothing holds", "$BUILD m.lua --out t/b/c", 2, "--out: t/b/c", "there is no folder t/b",
     "mkdir -p t/b"},
    {"a private key among the output", "cp keys/private.pem out/k; $BUILD m.lua --out out", 2, "--out: out/k",
     "is a private key", "move it, or name another folder"},
    {"the key file among the output", "cp secrets oute/k; $BUILD e.lua --out oute --secrets secrets", 2,
     "--out: oute/k", "has a key of secrets", "move it, or name another folder"},
    {"what was not rehearsed",
     "cp -r out 't t'; $PACK check 't t/update.lua' --files 't t' --pub keys/rovu_pub.pem >f; "
     "$BUILD e.lua --out d --secrets secrets >t; cat t; mv t d; "
     "grep -h '^Not' f d/t | sed 's/^[^:]*: //; s/KIND,root=ROOTFS/" KIND "/' | PATH=${PACK%/*}:$PATH sh -ev",
     0, "rovu-pack rehearse 't t/update.lua' --files 't t' --pub keys/rovu_pub.pem --device ",
     "Not rehearsed: rovu-pack rehearse d/update.lua --files d --pub keys/rovu_pub.pem --secrets secrets --device ",
     "from set 1: as planned"},
    {"what is not signed", "$PACK build m.lua --out d --unsigned --base-url http://h", 0,
     "The spec is not signed",
     "Not rehearsed: rovu-pack rehearse d/update.lua --files d --unsigned --device KIND,root=ROOTFS"},
    {"the output in place of the input",
     "mkdir d; cp k.img d/rootfs.tar; cp r.img d; sed s/k.img/rootfs.tar/ m.lua >d/m.lua; $BUILD d/m.lua --out d",
     2, "d/rootfs.tar", "the result would replace it", "name another folder with --out"},
    {"another kind of key", "$BUILD e.lua --out t --secrets keys/private.pem", 1, "e.lua:1 encr_key_offset",
     "keys/private.pem is not a key file: it is a private key.", "Give the devices' key file"},
    {"too large a key file", "truncate -s 3G f; $PACK secret f", 2, "secret: f", "offsets end at 2147483647",
     "name a new one"},
    {"a key pair again", "$PACK keygen keys", 2, "keys/private.pem", "exists and is unchanged",
     "name another folder"},

    // tars and specs
    {"a tar as spec", "$CHECK out/kernel.tar", 2, "out/kernel.tar", "this is a tar", "give the spec"},
    {"a FIFO as spec", "mkfifo f; $CHECK f", 2, "check: f", "it is a FIFO", kRegular},
    {"a FIFO as tar", "rm out/kernel.tar; mkfifo out/kernel.tar; $CHECK out/update.lua --files out", 1,
     "out/update.lua:7 1.url", "out/kernel.tar: it is a FIFO", kRegular},
    {"a truncated tar", "truncate -s 1024000 out/rootfs.tar; $CHECK out/update.lua --files out", 1,
     "out/update.lua:16 2.url", "out/rootfs.tar is damaged, and most likely truncated", kCopyAgain},
    {"a truncated tar of two blocks",
     "truncate -s 512 out/rootfs.tar; $CHECK out/update.lua --files out; status=$?; "
     "cat said | grep encrypted-without-key && exit 9; exit $status",
     1, "2.url", "out/rootfs.tar is damaged, and most likely truncated", kCopyAgain},
    {"another tar than that of the spec",
     "cp out/rootfs.tar out/kernel.tar; $CHECK out/update.lua --files out", 1, "out/update.lua:8 1.hash",
     "out/kernel.tar has the digest",
     "Copy the file that was built and tested again. Sign another digest only if this one was tested."},
    {"an image twice in a tar, the right one last",
     "mkdir d; echo old >d/k.img; tar -cf out/kernel.tar -C d k.img; tar -rf out/kernel.tar k.img; "
     "$CHECK out/update.lua --files out; status=$?; cat said | grep image_md5 && exit 9; exit $status",
     1, "1.hash", "out/kernel.tar has the digest", "Copy the file"},
    {"a truncated encrypted tar",
     "truncate -s 1024000 oute/rootfs.tar; $CHECK oute/update.lua --files oute --secrets secrets", 1,
     "encr_key_offset", "oute/rootfs.tar: the key is wrong, or the file is not whole",
     "Make sure that --secrets is the devices' key file"},
    {"a tar that was truncated before its encryption",
     "hex() { od -An -v -tx1 | tr -d ' \\n'; }; head -c 1024000 out/rootfs.tar | openssl enc -aes-256-cbc "
     "-K $(head -c 32 secrets | hex) -iv $(tail -c 16 secrets | hex) >oute/rootfs.tar; "
     "$CHECK oute/update.lua --files oute --secrets secrets",
     1, "2.url", "oute/rootfs.tar is damaged, and most likely truncated: ", kCopyAgain},
    {"a folder in a tar",
     "mkdir -p d/r.img; tar -cf out/rootfs.tar -C d r.img; $CHECK out/update.lua --files out", 1,
     "out/update.lua:19 2.image", "\"r.img\" of out/rootfs.tar is a folder",
     "make the tar again with the image"},
    {"a page as tar", PAGE "out/kernel.tar; $CHECK out/update.lua --files out", 1, "1.url",
     "out/kernel.tar is no tar, but a page of HTML", "Copy the file that was built and tested again"},
    {"a page as encrypted tar", PAGE "oute/kernel.tar; $CHECK oute/update.lua --files oute --secrets secrets",
     1, "1.url", "oute/kernel.tar is neither a tar nor encrypted, but a page", "Copy the file"},
    {"noise as tar", "printf '\\1\\2' >out/kernel.tar; $CHECK out/update.lua --files out", 1, "1.url",
     "out/kernel.tar is no tar.", "Copy the file"},
    {"a FIFO in a tar",
     "mkdir d; mkfifo d/r.img; tar -cf out/rootfs.tar -C d r.img; $CHECK out/update.lua --files out", 1,
     "2.image", "\"r.img\" of out/rootfs.tar is not a file", "make the tar again with the image"},
    {"a folder that only its owner enters",
     "chmod 700 out; chmod 600 out/update.lua; $CHECK out/update.lua --files out", 0,
     "out/update.lua can be read only by its owner", "out can be entered only by", "chmod a+x"},
    {"no tar at all", "sed \"s/{ v/{ 's', encr_key_offset = 0, v/; s/'exit_success'//\" s.lua >f; $CHECK f",
     1, "f:1 script_url", "There are scripts, but no tar that holds them.",
     "Take encr_key_offset out; a device without a key file fails"},
    {"a volume of nothing", "sed -i 's/imsize = 5000000/imsize = 0/' out/update.lua; $CHECK out/update.lua",
     1, "2.imsize", "A volume of 0 bytes holds no image.", "Give at least the size"},
    {"another folder of files", "mkdir d; $CHECK out/update.lua --files d", 1, "error    tar-missing",
     "None of the 2 tars of the spec is in d.\n         Give the folder that is served with --files.\n",
     "\n1 error, 0 warnings"},
    {"another key file", "$PACK secret f; $CHECK oute/update.lua --files oute --secrets f", 1,
     "encr_key_offset", "No tar decrypts with the key that f has there.", "\n1 error, 0 warnings"},
    {"another public key", "$PACK keygen d; $PACK check out/update.lua --pub d/rovu_pub.pem", 1,
     "out/update.lua:24", "failed: 74 (does not verify)",
     "Make sure that d/rovu_pub.pem is the devices' key"},
    {"a spec that was changed",
     "sed -i s/RV/RW/ out/update.lua; $PACK check out/update.lua --pub keys/rovu_pub.pem", 1,
     "out/update.lua:24", "does not verify", "Sign it again only if the change is your own."},

    // devices
    {"a mistyped word of a device", DEVICE "modle=RV-20,kernel=1,rootfs=1", 2, "--device modle=RV-20",
     "\"modle\" is not a property", "did you mean \"model\"?"},
    {"a word that is near none", DEVICE KIND ",colour=1", 2, "\"colour\"", "is not a property",
     "known are model, kernel"},
    {"a space in a device", DEVICE "'model=RV-20, kernel=1,rootfs=1'", 2, "\" kernel\"",
     "has whitespace in it", "remove it"},
    {"a word without a value", DEVICE KIND ",tmp=", 2, "\"tmp\"", "has no value", "write one after"},
    {"a word twice", DEVICE KIND ",tmp=1,tmp=2", 2, "\"tmp\"", "is given twice", "keep one"},
    {"a word that is missing", DEVICE "model=RV-20,kernel=1", 2, "\"rootfs\"", "is missing",
     "write rootfs=..."},
    {"no room at all", DEVICE KIND ",tmp=0", 2, "tmp=0: ", "tmp is a number of bytes above 0", "64M"},
    {"a mistyped processor", DEVICE KIND ",arch=amr", 2, "arch=amr", "is none of aarch64, arm, arm64",
     "\"arm\"?"},
    {"a kernel without numbers", DEVICE "model=RV-20,kernel=3.10.49-yocto,rootfs=1", 1,
     "kernel 3.10.49-yocto",
     "number: 84 (malformed). A version is up to four numbers with dots or hyphens between them, and \"yocto\" is no",
     "Give the release as \"uname -r\" prints it"},
    {"a kernel that the rootfs refuses",
     "sed \"s/'k.img'/'k.img', dep = {{ 'rootfs', '3', '4' }}/; s/mandatory', version = '2.0', image = 'r/optional', "
     "version = '2.0', image = 'r/\" m.lua >d; $BUILD d --out z >f; $CHECK z/update.lua --device " KIND,
     1, "1.dep",
     "dependencies not met. The kernel image: its dependencies refuse the installed rootfs 1.0.0.0",
     "widen the list only for a pair that was tested"},
    {"one device", DEVICE KIND, 0, "MODEL  KERNEL  ROOTFS  VERDICT",
     "  kernel  installed      its dependencies accept the new rootfs", ""},

    // options
    {"a mistyped option", "$PACK build m.lua --out t --keys keys/private.pem --base-url http://h", 2,
     "rovu-pack build: ", "unknown option --keys", "did you mean --key?"},
    {"a mistyped command", "$PACK chekc m.lua", 2, "rovu-pack: ", "unknown command \"chekc\"",
     "did you mean \"check\"?"},
    {"no command", "$PACK", 2, "rovu-pack: ", "a command is required: keygen, "},
    {"no device to rehearse", "$PACK rehearse out/update.lua --files out", 2, "rehearse: ", "name the kinds",
     "with --device"},
    {"a base without a scheme", "$PACK build m.lua --out t --key keys/private.pem --base-url u", 2,
     "--base-url: \"u\"", "is not a URL", "such as http"},
    {"a time that is none", "SOURCE_DATE_EPOCH=now $BUILD m.lua --out t", 2, "SOURCE_DATE_EPOCH: \"now\"",
     "is not a number of seconds", "or unset it"},
    {"one file too many", "$PACK check a b", 2, "rovu-pack check: ", "one argument too many: \"b\""},
    {"a missing option", "$PACK build m.lua --out t --base-url http://h", 2, "rovu-pack build: ", "one of",
     "--key and --unsigned is required"},
    {"no key file", "$BUILD e.lua --out t --secrets no", 2, "--secrets: no", "No such file"},
    {"no key file for check", "$CHECK out/update.lua --files out --secrets no", 2, "--secrets: no",
     "No such file"},
    {"a FIFO as key", "mkfifo f; $PACK sign out/update.lua --key f", 2, "--key: f", "it is a FIFO", kRegular},
    {"a FIFO as pass phrase", "mkfifo f; $PACK sign out/update.lua --key keys/private.pem --key-pass file:f",
     2, "--key-pass file:f", "it is a FIFO", kRegular},
    {"a FIFO as key file", "mkfifo f; $PACK secret f", 2, "secret: f", "it is a FIFO", kRegular},
    {"a device as key file for check", "$CHECK out/update.lua --files out --secrets /dev/zero", 2,
     "--secrets: /dev/zero", "it is a device", kRegular},
    {"a key from a pipe", "cat keys/private.pem | $PACK sign out/update.lua --key /dev/stdin", 0, "", ""},
    {"a key that others can read", "(umask 0; cat keys/private.pem >f); $PACK sign out/update.lua --key f", 0,
     "rovu-pack sign: warning: ", "the private key f can be read by others", "chmod go= f"},
    {"a folder as key", "$PACK sign out/update.lua --key keys", 2, "--key: keys", "it is a folder", kRegular},
    {"JSON of trouble", "$CHECK --json no 2>errors", 2,
     "{\n  \"error\": \"no: ", "No such file or directory\"\n}\n"},
    {"JSON of a wrong command line", "$CHECK m.lua --json --stirct 2>errors", 2, "{\n  \"error\": \"",
     "unknown option --stirct", "did you mean --strict?\"\n}"},

    // limits
    {"a loop for check", LOOP "$CHECK t.lua", 1, "t.lua", "evaluation-limit", "a spec is data"},
    {"a loop for inspect", LOOP "$PACK inspect t.lua", 1, kLimits, "text that is not evaluated", kTakeOut},
    {"a loop for rehearse", LOOP "$PACK rehearse t.lua --unsigned --files out --device " KIND, 2,
     "rovu-pack rehearse: ", kLimits, kTakeOut},
    {"a loop for sign", LOOP "$PACK sign t.lua --key keys/private.pem", 2, "rovu-pack sign: ", kLimits,
     kTakeOut},
    {"a loop for sign --digest", LOOP "$PACK sign t.lua --digest", 2, "rovu-pack sign: ", kLimits, kTakeOut},
    {"a loop for build", LOOP "$BUILD t.lua --out t", 2, "rovu-pack build: ", kLimits, kTakeOut},
    {"a signature that is not verified", LOOP "$PACK inspect t.lua --pub keys/rovu_pub.pem", 1,
     "t.lua: ", "not evaluated", "since no key of --pub verifies it"},

    // names that would move the cursor
    {"inspect", FORGE "$PACK inspect t.lua", 0, "models      ", SHOWN_MODEL "\n"},
    {"a finding", FORGE "$CHECK t.lua --device " KIND, 1, "t.lua:1 hardware",
     "refuses the update: HW model \"RV-20\" is not supported in spec \"" SHOWN_MODEL,
     "add its model only if the images are made for it"},
    {"a plan", FORGE "$CHECK t.lua --device " KIND, 1, "",
     "refused: HW model \"RV-20\" is not supported in spec \"" SHOWN_MODEL},
    {"a table",
     FORGE "$CHECK t.lua $(for i in 1 2; do printf ' --device model=\\033[2J,kernel=1,rootfs=1'; done)", 1,
     "", "\n\\x1b[2J "},
    {"a command of a plan",
     FORGE "sed -i \"s/'m.*8'/'m'/\" t.lua; $CHECK t.lua -v --device model=m,kernel=1,rootfs=1", 1, "",
     R"($ /bin/sh '/tmp/rovu/a\x1b[2J')"},
    {"a device's log",
     FORGE "sed -i \"s/'m.*8'/'m'/\" t.lua; mkdir d; printf x >d/s; "
           "$PACK rehearse t.lua --unsigned --files d --device model=m,kernel=1,rootfs=1",
     1, "", R"(Failed to extract "a\x1b[2J")"},
    {"an error", FORGE "$BUILD t.lua --out t", 2, "t.lua:2: entry 1",
     R"("a\x1b[2J" has a line feed or other control character)", "Use letters, digits"},
    {"JSON", FORGE "$PACK inspect t.lua --json", 0, "", R"(m\n good\u001b[2A\u007f\u009b\u00e9\ufffd)"},
};

TEST_F(Messages, OfRovuPackSayWhatHappenedWhereAndWhatToDo) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(shell(std::string("rm -rf d f t 't t' z && cp -r out o && cp -r oute oe && ") + row.line),
                  row.status)
            << said();
        for (const char* part : {row.where, row.what, row.todo})
            EXPECT_NE(said().find(part), std::string::npos) << part << "\n" << said();
        EXPECT_FALSE(exists("t"));
        shell("rm -rf out oute && mv o out && mv oe oute");
    }
}

TEST_F(Messages, OfRovuSimSayWhatHappenedAndWhatToDo) {
    // A kernel that forbids user namespaces.
    const std::string forbidding = "bwrap --unshare-user --disable-userns --dev-bind / / ";
    // A program of another processor, the emulator for it, and a registration that names it by a link.
    const std::string foreign = R"(mkdir -p tree/bin misc && cp /bin/true bin/qemu-mips-static &&
        printf '\177ELF\1\2\1\0\0\0\0\0\0\0\0\0\0\2\0\10' >tree/bin/sh && chmod 755 tree/bin/sh &&
        ln -s ../bin/qemu-mips-static misc/link && $SIM init mips --root tree &&
        printf "enabled\ninterpreter $PWD/misc/link\nflags: OCF\n" >misc/mips && PATH=$PWD/bin:$PATH )";
    const struct {
        std::string line;
        int status;
        std::string said;
    } rows[] = {
        {"$SIM init dev --key no", 1, "--key, no: No such file"},
        {"$SIM init dev --key=", 2, "--key: the value is empty"},
        {"$SIM init dev --model ''", 2, "--model: the value is empty"},
        {"$SIM init -- dev", 0, ""},
        {"$SIM run dev --watch=true -- true", 2, "--watch takes no value"},
        {"$SIM run dev ls -l", 2, "\"--\" is required before the command: rovu-sim run STATE -- ls"},
        {"for rule in frobnicate:1=EIO read:1=EFOO read:0=EIO read=EIO read:1 exit_group:1=EIO; do "
         "$SIM run dev --fail-syscall $rule -- true; [ $? -eq 2 ] || exit 3; done; exit 2",
         2, "--fail-syscall exit_group:1=EIO: "},
        {"for rule in read:1=EIO read:1/0=TERM read:1/x=TERM read:x=TERM; do "
         "$SIM run dev --kill-at $rule -- true; [ $? -eq 2 ] || exit 3; done; exit 2",
         2, "--kill-at read:x=TERM: "},
        {"$SIM run dev --", 2, "a command after \"--\" is required"},
#ifndef __SANITIZE_ADDRESS__  // which takes more itself
        {"truncate -s 1G big && ulimit -v 100000 && $SIM volume put dev k0 big", 1, "alloc"},
#endif
        {"mkdir bin && cp /bin/true bin/updater && PATH=$PWD/bin:$PATH $SIM run dev -- updater", 127,
         "the workstation has it as " + pathOf("bin/updater") + ": give that path"},
        {foreign + forbidding + "--bind misc /proc/sys/fs/binfmt_misc --uid 0 --gid 0 $SIM run mips -- none",
         127, "none is not in the device's PATH"},
        {forbidding + "--uid 1 --gid 1 $SIM init other", 1, "user.max_user_namespaces"},
        {forbidding + "--uid 0 --gid 0 $SIM run dev -- grep CapEff /proc/self/status", 0, "0000000000000000"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(shell("SIM='" ROVU_SIM_PROGRAM "' && " + row.line), row.status) << said();
        EXPECT_NE(said().find(row.said), std::string::npos) << said();
        EXPECT_EQ(exists("dev"), &row >= rows + 3);
    }
}

}  // namespace
