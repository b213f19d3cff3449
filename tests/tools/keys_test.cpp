// Private keys: those of the wrong kind are called what they are, and encrypted ones need no terminal.

#include "pack_shell.h"

namespace {

constexpr char kSpec[] =
    "{ version = 1, hardware = 'RV-20', script_url = '', script_hash = '', script_dlsize = 0, 'exit_success' }\n";

using Keys = PackShell;

struct Row {
    const char* arguments;
    int status;
    const char* message;
};

TEST_F(Keys, OfTheWrongKindAreNamed) {
    put("spec.lua", kSpec);
    put("junk", "junk\n");
    ASSERT_EQ(
        shell(
            "$PACK keygen keys && cd keys && openssl pkey -in private.pem -outform DER -out ../der &&"
            " openssl req -x509 -key private.pem -subj /CN=x -out ../certificate &&"
            " cat ../certificate private.pem >../both && openssl rsa -in private.pem -traditional -out ../pkcs1 &&"
            " openssl genrsa -out ../large 4096 &&"
            " openssl ecparam -name prime256v1 -genkey -noout -out ../curve"),
        0)
        << said();
    const Row rows[] = {{"keys/private.pem", 0, ""},
                        {"both", 0, ""},
                        {"pkcs1", 0, ""},
                        {"keys/rovu_pub.pem", 2, "public key"},
                        {"certificate", 2, "certificate"},
                        {"der", 2, "openssl pkey -inform DER"},
                        {"junk", 2, "no private key"},
                        {"large", 2, "an RSA key of 4096 bits"},
                        {"curve", 2, "not an RSA key"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        EXPECT_EQ(shell(std::string("$PACK sign spec.lua --key ") + row.arguments), row.status) << said();
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
    }
}

// setsid takes the terminal away.
TEST_F(Keys, PassPhraseComesFromWhereTheOptionSays) {
    put("spec.lua", kSpec);
    put("phrase", "open sesame\nsecond line\n");
    put("wrong", "open sesame!\n");
    put("empty", "\n");
    ASSERT_EQ(
        shell("$PACK keygen keys && cp spec.lua plain.lua && $PACK sign plain.lua --key keys/private.pem &&"
              " openssl pkey -in keys/private.pem -aes256 -passout file:phrase -out new.pem &&"
              " openssl rsa -in keys/private.pem -traditional -aes128 -passout file:phrase -out old.pem"),
        0)
        << said();
    const Row rows[] = {{"--key-pass file:phrase", 0, ""},
                        {"--key-pass fd:5 5<phrase", 0, ""},
                        {"--key-pass env:PHRASE", 0, ""},
                        {"--key-pass file:wrong", 2, "wrong pass phrase, which came from file:wrong"},
                        {"", 2, "there is no terminal to ask for it; name its source with --key-pass"},
                        {"--key-pass file:empty", 2, "no pass phrase there"},
                        {"--key-pass file:absent", 2, "--key-pass file:absent: No such file"},
                        {"--key-pass fd:99", 2, "--key-pass fd:99: Bad file descriptor"},
                        {"--key-pass env:ABSENT", 2, "no such variable"},
                        {"--key-pass pass:hidden", 2, "give file:PATH"},
                        {"--key-pass hidden", 2, "file:PATH, fd:N or env:NAME"}};
    for (const std::string key : {"new.pem", "old.pem"}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(key + " " + row.arguments);
            const std::string line = "PHRASE='open sesame' setsid -w $PACK sign copy.lua --key " + key + " ";
            EXPECT_EQ(shell("cp spec.lua copy.lua && " + line + row.arguments), row.status) << said();
            EXPECT_NE(said().find(row.message), std::string::npos) << said();
            EXPECT_EQ(said().find("hidden"), std::string::npos) << said();
            EXPECT_EQ(read("copy.lua"), row.status == 0 ? read("plain.lua") : kSpec);
        }
    }
}

}  // namespace
