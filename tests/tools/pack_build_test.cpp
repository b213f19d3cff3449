// Updates that rovu-pack makes: the same bytes everywhere, signatures and ciphertext that others understand,
// and nothing at all where something is wrong.

#include "pack_shell.h"
#include "support/crypto.h"
#include "transfer/file_decryption.h"
#include "update_spec/spec_signature.h"

#include <cerrno>

namespace {

namespace fs = std::filesystem;
constexpr char kImage[] =
    "{ type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img', preinst = 'pre.sh' },";

std::string manifest(const std::string& more) {
    return "{ version = 1, hardware = 'RV-20', 'before.sh',\n" + more + "\n}\n";
}

class PackBuild : public PackShell {
protected:
    PackBuild() {
        writeParts(pathOf("parts"));
        EXPECT_EQ(pack("keygen keys"), 0);
    }

    static void writeParts(const std::string& folder) {
        writeWholeFile(folder + "/before.sh", "echo before\n");
        writeWholeFile(folder + "/pre.sh", "echo pre\n");
        writeWholeFile(folder + "/k.img", "version=2.0\n" + std::string(100000, 'k'));
    }

    int build(const std::string& text, const std::string& options = "--out out") const {
        put("parts/m.lua", text);
        return shell("$BUILD/u parts/m.lua " + options);
    }

    int verify(const std::string& file) const {
        const std::string spec = read(file);
        const char* marker = findSignatureMarker(spec.data(), spec.size());
        if (marker == nullptr) return ENOENT;
        const size_t length = static_cast<size_t>(marker - spec.data());
        return verifySpecSignature(pathOf("keys/rovu_pub.pem").c_str(), spec.data(), length, marker + 2,
                                   spec.size() - length - 2);
    }

    // What the spec says of a tar must be true of the bytes that the device downloads.
    void expectSpecDescribes(const std::string& tar, const std::string& hash, const std::string& size) const {
        const std::string spec = read("out/update.lua"), bytes = read("out/" + tar);
        EXPECT_NE(spec.find(" " + hash + " = '" + sha256Hex(bytes) + "'"), std::string::npos) << spec;
        EXPECT_NE(spec.find(" " + size + " = " + std::to_string(bytes.size()) + ","), std::string::npos)
            << spec;
    }
};

TEST_F(PackBuild, SpecHasTheDigestsOfTheFilesAsTheyAreDownloaded) {
    ASSERT_EQ(pack("secret preshared"), 0);
    const struct {
        const char *offset, *options;
    } rows[] = {{"", "--out out"}, {"encr_key_offset = 0,", "--out out --secrets preshared"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.options);
        ASSERT_EQ(build(manifest(std::string(row.offset) + kImage), row.options), 0);
        expectSpecDescribes("kernel.tar", "hash", "dlsize");
        expectSpecDescribes("scripts.tar", "script_hash", "script_dlsize");
        const std::string image = md5Hex(read("parts/k.img"));
        EXPECT_NE(read("out/update.lua").find(" image_md5 = '" + image + "'"), std::string::npos);
        fs::remove_all(pathOf("out"));
    }
}

TEST_F(PackBuild, TarsGiveTheirMembersByTheNamesInTheSpec) {
    ASSERT_EQ(build(manifest(kImage)), 0);
    EXPECT_EQ(shell("mkdir got && tar -xf out/scripts.tar -C got before.sh && "
                    "tar -xf out/kernel.tar -C got k.img && tar -xf out/kernel.tar -C got pre.sh"),
              0);
    EXPECT_EQ(shell("rm parts/m.lua && diff -r got parts"), 0);
}

TEST_F(PackBuild, SameInputGivesTheSameBytesAnywhereAtAnyTime) {
    ASSERT_EQ(build(manifest(kImage)), 0);
    writeParts(pathOf("elsewhere/deep"));
    put("elsewhere/deep/m.lua", manifest(kImage));
    ASSERT_EQ(
        shell(
            "cd elsewhere/deep && touch -d 2001-02-03 * && chmod 0700 before.sh && umask 077 && $PACK build m.lua --out ../../other --base-url http://h/u/ --key ../../keys/private.pem"),
        0);
    EXPECT_EQ(shell("diff -r out other"), 0);
    EXPECT_EQ(shell("SOURCE_DATE_EPOCH=86400 $BUILD/u parts/m.lua --out dated"), 0);
    EXPECT_EQ(shell("tar -tvf dated/kernel.tar --utc | grep -c '0/0 .* 1970-01-02 00:00 ' | grep -qx 2"), 0);
}

TEST_F(PackBuild, OpensslAloneVerifiesTheSignature) {
    ASSERT_EQ(build(manifest(kImage)), 0);
    EXPECT_EQ(verify("out/update.lua"), 0);
    EXPECT_EQ(
        shell("head -c -346 out/update.lua >text && tail -c 344 out/update.lua | base64 -d >signature && "
              "openssl dgst -sha256 -verify keys/rovu_pub.pem -signature signature text"),
        0);
}

TEST_F(PackBuild, SignReplacesASignatureAndEndsALine) {
    put("spec", "{ version = 1, hardware = 'a' } -- no line feed");
    ASSERT_EQ(pack("sign spec --key keys/private.pem"), 0);
    EXPECT_EQ(verify("spec"), 0);
    const std::string once = read("spec");
    ASSERT_EQ(pack("sign spec --key keys/private.pem"), 0);
    EXPECT_EQ(read("spec"), once);

    put("spec", once.substr(0, once.size() - 5));
    EXPECT_EQ(pack("sign spec --key keys/private.pem"), 2) << "a damaged signature must not be signed over";
    EXPECT_EQ(read("spec"), once.substr(0, once.size() - 5));
}

TEST_F(PackBuild, EncryptedTarsAreWhatTheDeviceDecrypts) {
    ASSERT_EQ(pack("secret preshared"), 0);
    ASSERT_EQ(build(manifest(kImage), "--out plain"), 0);
    const std::string encrypted = manifest(std::string("encr_key_offset = 0,") + kImage);
    ASSERT_EQ(build(encrypted, "--out out --secrets preshared"), 0);
    const std::string secret = read("preshared");
    const uint8_t* key = reinterpret_cast<const uint8_t*>(secret.data());
    ASSERT_EQ(decryptFile(pathOf("out/kernel.tar").c_str(), key, key + 32), 0);
    EXPECT_EQ(read("out/kernel.tar"), read("plain/kernel.tar"));
}

TEST_F(PackBuild, SecretsAreAppendedAndTheirOffsetsPrinted) {
    EXPECT_EQ(shell("$PACK secret preshared >first"), 0);
    const std::string before = read("preshared");
    EXPECT_EQ(shell("$PACK secret preshared >second"), 0);
    EXPECT_EQ(read("first"), "0\n");
    EXPECT_EQ(read("second"), "48\n");
    EXPECT_EQ(read("preshared").size(), 96U);
    EXPECT_EQ(read("preshared").substr(0, 48), before);
}

TEST_F(PackBuild, KeysAreNeverOverwritten) {
    const std::string before = read("keys/private.pem");
    EXPECT_EQ(pack("keygen keys"), 2);
    fs::remove(pathOf("keys/rovu_pub.pem"));
    EXPECT_EQ(pack("keygen keys"), 2);
    EXPECT_EQ(read("keys/private.pem"), before);
    EXPECT_EQ(fs::status(pathOf("keys/private.pem")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

#define DIGEST "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"

TEST_F(PackBuild, FaultsAreNamedAndNothingIsMade) {
    const struct {
        const char* more;     // in the manifest
        const char* options;  // of the command line
        const char* said;
    } kRows[] = {
        {"script_hash = '" DIGEST "',", "",
         "m.lua:2: \"script_hash\": \"" DIGEST "\" is given, but it is \""},
        {"script_dlsize = 7,", "", "m.lua:2: \"script_dlsize\": 7 is given, but there are 10240 bytes"},
        {"script_url = 'http://h/v/s.tar',", "", "m.lua:2: \"script_url\": "},
        {"clone_overley = 1,", "",
         "m.lua:2: \"clone_overley\": Nothing reads the key \"clone_overley\". Did you mean \"clone_overlay\"?"},
        {"'nothere.sh',", "", "m.lua:2: entry 2: parts/nothere.sh: "},
        {"finish, 'before.sh',", "", "m.lua:2: entry 2: Entry 2 is nil"},
        {"script_hash = finish,", "", "m.lua:2: \"script_hash\": \"script_hash\" is nil"},
        {"{ type = 'kernal', update = 'mandatory', version = '2', image = 'k.img' },", " --force",
         "m.lua:2: entry 2: \"type\": Every device refuses the spec: LUA parsing failed: Bad enum value for type: kernal"},
        {"{ type = 'rootfs', update = 'mandatory', version = '2', image = 'k.img',\n"
         "  dep = { { 'kernel', 3.10, '4' } } },",
         " --force", "m.lua:3: entry 2: \"dep.1.2\": A number loses its last zeros"},
        {"{ type = 'kernel', update = 'optional', version = '2', image = 'k.img' },", " --force",
         "m.lua:2: entry 3: \"type\": The device refuses a second kernel image"},
        {"files = { ['pre.sh'] = 'before.sh', ['k.sh'] = 'pre.sh' },", "",
         "m.lua:2: \"files\": nothing uses \"k.sh\""},
        {"'../keys/private.pem',", " --force", "m.lua:2: entry 2: \"../keys/private.pem\" leads out"},
        {"encr_key_offset = 0,", "", "m.lua:2: \"encr_key_offset\": asks for encryption"},
        {"encr_key_offset = 0,", " --secrets parts/pre.sh", "parts/pre.sh: no 48 bytes at offset 0"},
        {"{ type = 'kernel', update = 'mandatory', version = 3.10, image = 'k.img' },", "",
         "\"version\": a string"},
        {"hardware = 'RV-21',", "", "m.lua:2: \"hardware\": \"hardware\" is there twice"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.more);
        EXPECT_EQ(build(manifest(std::string(row.more) + kImage), std::string("--out out") + row.options), 2);
        EXPECT_NE(said().find(row.said), std::string::npos) << said();
        EXPECT_FALSE(exists("out"));
    }
}

TEST_F(PackBuild, VariablesStandForWhatIsWrittenOut) {
    ASSERT_EQ(build(manifest(kImage)), 0);
    std::string text = manifest(kImage);
    for (const auto& [written, read] : {std::pair<std::string, std::string>{"'2.0'", "vars.version"},
                                        {"'k.img'", "vars.name .. '.img'"},
                                        {"version = 1,", "version = vars.format + 0,"}})
        text.replace(text.find(written), written.size(), read);
    const std::string options = "--out other --set version=2.0 --set name=k --set format=";
    ASSERT_EQ(build(text, options + "1"), 0) << said();
    EXPECT_EQ(shell("diff -r out other"), 0);
    EXPECT_EQ(build(text, options + "2"), 2);
}

TEST_F(PackBuild, ExitSuccessIsNeverPacked) {
    put("parts/m.lua", "{ version = 1, hardware = 'a', 'exit_success' }");
    ASSERT_EQ(shell("$BUILD parts/m.lua --out out"), 0);
    EXPECT_EQ(shell("test \"$(ls -A out)\" = update.lua"), 0);
}

}  // namespace
