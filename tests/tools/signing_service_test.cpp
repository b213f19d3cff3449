// Specs that are signed elsewhere: openssl stands for the signing service, which sees a digest or the text, and no
// private key is given to the program.

#include "pack_shell.h"

namespace {

constexpr char kManifest[] = R"({ version = 1, hardware = 'RV-20', clone_overlay = 1, 'before.sh',
  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' } })";
constexpr char kAttach[] = "$PACK attach copy.lua signature --pub keys/rovu_pub.pem";

class SigningService : public PackShell {
protected:
    SigningService() {
        put("m.lua", kManifest);
        put("before.sh", "echo before\n");
        put("k.img", std::string(1000, 'k'));
        EXPECT_EQ(shell("$PACK keygen keys && $PACK keygen other &&"
                        " $PACK build m.lua --out signed --key keys/private.pem --base-url http://h/u &&"
                        " $PACK build m.lua --out unsigned --unsigned --base-url http://h/u"),
                  0)
            << said();
        // The service's side: the two hyphens are not signed; pkeyutl takes the digest in binary.
        EXPECT_EQ(
            shell("head -c -2 unsigned/update.lua >text && $PACK sign unsigned/update.lua --digest >digest &&"
                  " tr a-f A-F <digest | basenc --base16 --decode >binary"),
            0)
            << said();
    }

    void sign(const std::string& command) const {
        ASSERT_EQ(shell("cp unsigned/update.lua copy.lua && " + command + " >signature"), 0) << said();
    }
};

TEST_F(SigningService, MakesTheBytesThatTheKeyWouldHaveMade) {
    EXPECT_EQ(read("unsigned/update.lua") +
                  read("signed/update.lua").substr(read("signed/update.lua").size() - 344),
              read("signed/update.lua"));
    EXPECT_EQ(read("unsigned/kernel.tar"), read("signed/kernel.tar"));
    EXPECT_EQ(shell("test \"$(cat digest)\" = \"$(sha256sum <text | cut -c-64)\""), 0);
    for (const std::string command :
         {"openssl dgst -sha256 -sign keys/private.pem text",
          "openssl pkeyutl -sign -inkey keys/private.pem -pkeyopt digest:sha256 -in binary",
          "openssl dgst -sha256 -sign keys/private.pem text | base64",
          "openssl dgst -sha256 -sign keys/private.pem text | base64 -w0"}) {
        SCOPED_TRACE(command);
        sign(command);
        EXPECT_EQ(shell(kAttach), 0) << said();
        EXPECT_EQ(read("copy.lua"), read("signed/update.lua"));
    }
}

TEST_F(SigningService, RefusesWhatNoDeviceWouldVerify) {
    struct Row {
        const char *command, *message;
    };
    const Row rows[] = {
        {"openssl dgst -sha256 -sign other/private.pem text", "by another key"},
        {"openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sign keys/private.pem text", "another padding"},
        {"openssl dgst -sha256 -sign keys/private.pem binary", "its digest was hashed again"},
        {"openssl dgst -sha256 -sign keys/private.pem unsigned/update.lua", "the spec was changed since"},
        {"openssl dgst -sha512 -sign keys/private.pem text", "not over a SHA-256 digest"},
        {"openssl pkeyutl -sign -inkey keys/private.pem -in binary", "not over a SHA-256 digest"},
        {"cat digest", "no signature: it has 65 bytes"},
        {"openssl dgst -sha256 -sign keys/private.pem text | base64 | sed '1s/./-/'",
         "no signature: it has"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        sign(row.command);
        EXPECT_EQ(shell(kAttach), 2);
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
        EXPECT_EQ(read("copy.lua"), read("unsigned/update.lua"));
    }
}

TEST_F(SigningService, SignsSpecsOfAnyOrigin) {
    put("hand.lua", read("text"));
    put("cut.lua", read("text").substr(0, read("text").size() - 1));
    for (const std::string spec : {"hand.lua", "cut.lua", "signed/update.lua"}) {
        SCOPED_TRACE(spec);
        sign("openssl dgst -sha256 -sign other/private.pem text");
        EXPECT_EQ(shell("test $($PACK sign --digest " + spec + ") = $(cat digest)"), 0) << said();
        EXPECT_EQ(shell("$PACK attach " + spec + " signature --pub other/rovu_pub.pem"), 0) << said();
        EXPECT_EQ(shell("cp unsigned/update.lua copy.lua && $PACK sign copy.lua --key other/private.pem"), 0)
            << said();
        EXPECT_EQ(read(spec), read("copy.lua"));
    }
    put("refused.lua", "{ version = 2 }\n");
    EXPECT_EQ(shell("$PACK sign --digest refused.lua"), 2) << said();
}

TEST_F(SigningService, MissingSignatureIsToldFromADamagedOne) {
    struct Row {
        const char* arguments;
        int status;
        const char* message;
    };
    const Row rows[] = {
        {"check unsigned/update.lua", 1, "error    signature-missing"},
        {"check unsigned/update.lua --unsigned", 0, "note     signature-missing"},
        {"check unsigned/update.lua --pub keys/rovu_pub.pem", 1, "rovu-pack attach"},
        {"inspect unsigned/update.lua --pub keys/rovu_pub.pem", 1, "signature   missing: the file"},
        {"inspect unsigned/update.lua --json", 1, R"("signature": "missing")"},
        {"build m.lua --out new --base-url http://h/u", 2, "one of --key and --unsigned"},
        {"sign unsigned/update.lua", 2, "one of --key and --digest"},
        {"sign unsigned/update.lua --key ''", 2, "the value is empty"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        EXPECT_EQ(shell(std::string("$PACK ") + row.arguments), row.status);
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
        EXPECT_EQ(said().find("comment-as-marker"), std::string::npos) << said();
    }
}

}  // namespace
