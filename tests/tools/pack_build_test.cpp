// Updates that rovu-pack makes: the same bytes everywhere, signatures and ciphertext that others understand,
// and nothing at all where something is wrong.

#include "file_decryption.h"
#include "spec_signature.h"
#include "support/program.h"
#include "support/scratch.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
constexpr char kPack[] = ROVU_PACK_PROGRAM;
constexpr char kImage[] =
    "{ type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img', preinst = 'pre.sh' },";

std::string manifest(const std::string& more) {
    return "{ version = 1, hardware = 'RV-20', 'before.sh',\n" + more + "\n}\n";
}

class PackBuild : public ::testing::Test {
protected:
    PackBuild() {
        writeParts(path("parts"));
        EXPECT_EQ(0, run("keygen keys"));
    }

    std::string path(const std::string& name) const { return scratch.path + "/" + name; }
    std::string content(const std::string& name) const { return readWholeFile(path(name)); }

    static void writeParts(const std::string& folder) {
        writeWholeFile(folder + "/before.sh", "echo before\n");
        writeWholeFile(folder + "/pre.sh", "echo pre\n");
        writeWholeFile(folder + "/k.img", "version=2.0\n" + std::string(100000, 'k'));
    }

    int shell(const std::string& line) const {
        const std::string said = path("said");
        return Program({"/bin/sh", "-c", "cd '" + scratch.path + "' && " + line}, said, said).wait();
    }
    int run(const std::string& arguments) const { return shell(std::string(kPack) + " " + arguments); }

    int build(const std::string& text, const std::string& options = "--out out") const {
        writeWholeFile(path("parts/m.lua"), text);
        return run("build parts/m.lua --key keys/private.pem --base-url http://h/u " + options);
    }

    int verify(const std::string& file) const {
        const std::string spec = content(file);
        const char* marker = findSignatureMarker(spec.data(), spec.size());
        if (marker == nullptr) return ENOENT;
        const size_t length = static_cast<size_t>(marker - spec.data());
        return verifySpecSignature(path("keys/rovu_pub.pem").c_str(), spec.data(), length, marker + 2,
                                   spec.size() - length - 2);
    }

    const ScratchDir scratch;
};

TEST_F(PackBuild, SameInputGivesTheSameBytesInAnyFolderUnderAnyMaskAtAnyTime) {
    ASSERT_EQ(0, build(manifest(kImage)));
    writeParts(path("elsewhere/deep"));
    writeWholeFile(path("elsewhere/deep/m.lua"), manifest(kImage));
    ASSERT_EQ(0,
              shell("cd elsewhere/deep && touch -d 2001-02-03 * && chmod 0700 before.sh && umask 077 && '" +
                    std::string(kPack) +
                    "' build m.lua --out ../../other --base-url http://h/u/ --key ../../keys/private.pem"));
    EXPECT_EQ(0, shell("diff -r out other"));
    EXPECT_EQ(0, shell("SOURCE_DATE_EPOCH=86400 " + std::string(kPack) +
                       " build parts/m.lua --out dated --base-url http://h/u --key keys/private.pem"));
    EXPECT_EQ(0, shell("tar -tvf dated/kernel.tar --utc | grep -c '0/0 .* 1970-01-02 00:00 ' | grep -qx 2"));
}

TEST_F(PackBuild, OpensslAloneVerifiesTheSignature) {
    ASSERT_EQ(0, build(manifest(kImage)));
    EXPECT_EQ(0, verify("out/update.lua"));
    EXPECT_EQ(
        0, shell("head -c -346 out/update.lua >text && tail -c 344 out/update.lua | base64 -d >signature && "
                 "openssl dgst -sha256 -verify keys/rovu_pub.pem -signature signature text"));
}

TEST_F(PackBuild, SignMakesWhatOpensslAloneMakes) {
    ASSERT_EQ(0, build(manifest(kImage)));
    ASSERT_EQ(0, shell("head -c -346 out/update.lua >text && { cat text; printf -- --; "
                       "openssl dgst -sha256 -sign keys/private.pem text | base64 -w0; } >by-openssl.lua"));
    EXPECT_EQ(0, verify("by-openssl.lua"));
    ASSERT_EQ(0, run("sign text --key keys/private.pem"));
    EXPECT_EQ(content("by-openssl.lua"), content("text"));
}

TEST_F(PackBuild, SignReplacesASignatureAndEndsALine) {
    writeWholeFile(path("spec"), "{ version = 1, hardware = 'a' } -- no line feed");
    ASSERT_EQ(0, run("sign spec --key keys/private.pem"));
    EXPECT_EQ(0, verify("spec"));
    const std::string once = content("spec");
    ASSERT_EQ(0, run("sign spec --key keys/private.pem"));
    EXPECT_EQ(once, content("spec"));

    writeWholeFile(path("spec"), once.substr(0, once.size() - 5));
    EXPECT_EQ(2, run("sign spec --key keys/private.pem")) << "a damaged signature must not be signed over";
    EXPECT_EQ(once.substr(0, once.size() - 5), content("spec"));
}

TEST_F(PackBuild, EncryptedTarsAreWhatTheDeviceDecrypts) {
    ASSERT_EQ(0, run("secret preshared"));
    ASSERT_EQ(0, build(manifest(kImage), "--out plain"));
    ASSERT_EQ(0,
              build(manifest(std::string("encr_key_offset = 0,") + kImage), "--out out --secrets preshared"));
    const std::string secret = content("preshared");
    const uint8_t* key = reinterpret_cast<const uint8_t*>(secret.data());
    ASSERT_EQ(0, decryptFile(path("out/kernel.tar").c_str(), key, key + 32));
    EXPECT_EQ(content("plain/kernel.tar"), content("out/kernel.tar"));
}

TEST_F(PackBuild, SecretsAreAppendedAndTheirOffsetsPrinted) {
    EXPECT_EQ(0, shell("'" + std::string(kPack) + "' secret preshared >first"));
    const std::string before = content("preshared");
    EXPECT_EQ(0, shell("'" + std::string(kPack) + "' secret preshared >second"));
    EXPECT_EQ("0\n", content("first"));
    EXPECT_EQ("48\n", content("second"));
    EXPECT_EQ(96U, content("preshared").size());
    EXPECT_EQ(before, content("preshared").substr(0, 48));
}

TEST_F(PackBuild, KeysAreNeverOverwritten) {
    const std::string before = content("keys/private.pem");
    EXPECT_EQ(2, run("keygen keys"));
    fs::remove(path("keys/rovu_pub.pem"));
    EXPECT_EQ(2, run("keygen keys"));
    EXPECT_EQ(before, content("keys/private.pem"));
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
              fs::status(path("keys/private.pem")).permissions());
}

TEST_F(PackBuild, FaultsAreNamedAndNothingIsMade) {
    const struct {
        const char *more, *options, *said;
    } kRows[] = {
        {"script_hash = 'abc',", "", "m.lua:2: \"script_hash\": \"abc\" is given, but it is \""},
        {"script_dlsize = 7,", "", "m.lua:2: \"script_dlsize\": 7 is given, but there are 10240 bytes"},
        {"script_url = 'http://h/v/s.tar',", "", "m.lua:2: \"script_url\": "},
        {"clone_overley = 1,", "",
         "\"clone_overley\": nothing reads this key; did you mean \"clone_overlay\"?"},
        {"'nothere.sh',", "", "m.lua:2: entry 2: parts/nothere.sh: "},
        {"finish, 'before.sh',", "", "m.lua:2: entry 2: its value is nil"},
        {"'../keys/private.pem',", "", "m.lua:2: entry 2: "},
        {"encr_key_offset = 0,", "", "m.lua:2: \"encr_key_offset\": asks for encryption"},
        {"encr_key_offset = 0,", " --secrets parts/pre.sh", "parts/pre.sh: no 48 bytes at offset 0"},
        {"{ type = 'kernel', update = 'mandatory', version = 3.10, image = 'k.img' },", "",
         "\"version\": a string"},
        {"hardware = 'RV-21',", "", "m.lua:2: \"hardware\": is there twice"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.more);
        fs::remove(path("said"));
        EXPECT_EQ(2, build(manifest(row.more), std::string("--out out") + row.options));
        EXPECT_NE(std::string::npos, content("said").find(row.said)) << content("said");
        EXPECT_FALSE(fs::exists(path("out")));
    }
}

TEST_F(PackBuild, ExitSuccessIsNeverPacked) {
    writeWholeFile(path("parts/m.lua"), "{ version = 1, hardware = 'a', 'exit_success' }");
    ASSERT_EQ(0, run("build parts/m.lua --out out --key keys/private.pem --base-url http://h/u"));
    EXPECT_EQ(0, shell("test \"$(ls -A out)\" = update.lua"));
}

}  // namespace
