// Private keys: those of the wrong kind are called what they are, and encrypted ones need no terminal.

#include "pack_shell.h"
#include "update_spec/spec_signature.h"

#include <cerrno>

namespace {

using Keys = PackShell;

struct Row {
    const char* arguments;
    int status;
    const char* message;
};

TEST_F(Keys, OfTheWrongKindAreNamed) {
    put("spec.lua", kSmallSpec);
    put("junk", "junk\n");
    ASSERT_EQ(
        shell(
            "$PACK keygen keys && cd keys && openssl pkey -in private.pem -outform DER -out ../der &&"
            " openssl req -x509 -key private.pem -subj /CN=x -out ../certificate &&"
            " cat ../certificate private.pem >../both && openssl rsa -in private.pem -traditional -out ../pkcs1 &&"
            " openssl genrsa -out ../large 4096 && cp private.pem ../opened && ssh-keygen -p -N '' -f ../opened &&"
            " openssl ecparam -name prime256v1 -genkey -noout -out ../curve"),
        0)
        << said();
    const Row rows[] = {{"keys/private.pem", 0, ""},
                        {"both", 0, ""},
                        {"pkcs1", 0, ""},
                        {"keys/rovu_pub.pem", 2, "public key"},
                        {"certificate", 2, "certificate"},
                        {"der", 2, "openssl pkey -inform DER"},
                        {"opened", 2, "ssh-keygen -p -m PKCS8"},
                        {"junk", 2, "no private key"},
                        {"large", 2, "an RSA key of 4096 bits"},
                        {"curve", 2, "not an RSA key"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        EXPECT_EQ(shell(std::string("$PACK sign spec.lua --key ") + row.arguments), row.status) << said();
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
    }
}

// What the device's own reader finds no key in is refused by all commands, and nothing else is.
TEST_F(Keys, PublicOnesOfTheWrongKindAreNamed) {
    put("spec.lua", kSmallSpec);
    put("junk", "junk\n");
    ASSERT_EQ(
        shell(
            "$PACK keygen keys && cp keys/private.pem private && cp keys/rovu_pub.pem public && rm -r keys &&"
            " $PACK sign spec.lua --key private && tail -c 344 spec.lua >signature &&"
            " openssl req -x509 -key private -subj /CN=x -out certificate && cat certificate public >both &&"
            " openssl x509 -in certificate -outform DER -out certificate.der &&"
            " openssl pkey -in private -outform DER -out private.der &&"
            " openssl pkey -in private -pubout -outform DER -out public.der &&"
            " openssl rsa -in private -RSAPublicKey_out -out pkcs1 &&"
            " openssl rsa -in private -RSAPublicKey_out -outform DER -out pkcs1.der &&"
            " openssl genrsa -out large.key 4096 && openssl pkey -in large.key -pubout -out large &&"
            " openssl ecparam -name prime256v1 -genkey -noout | openssl pkey -pubout -out curve &&"
            " ssh-keygen -y -f private >ssh && cp private opened && ssh-keygen -p -N '' -f opened"),
        0)
        << said();
    struct Case {
        const char* file;
        int deviceReads;
        const char* message;
        bool hasCommand;  // its last words are a command that makes the right file
    };
    const Case cases[] = {{"public", 0, "", false},
                          {"both", 0, "", false},
                          {"private", ENOMEM, "a private key; keep it secret", true},
                          {"opened", ENOMEM, "a private key of OpenSSH; keep it secret", true},
                          {"certificate", ENOMEM, "a certificate; print its public key", true},
                          {"pkcs1", ENOMEM, "a public key in the form of PKCS#1", true},
                          {"ssh", ENOMEM, "a public key of OpenSSH", true},
                          {"private.der", ENOMEM, "a private key in DER", true},
                          {"public.der", ENOMEM, "a public key in DER", true},
                          {"certificate.der", ENOMEM, "a certificate in DER", true},
                          {"pkcs1.der", ENOMEM, "a file in DER", true},
                          {"large", EBADMSG, "an RSA key of 4096 bits", false},
                          {"curve", ENOMEM, "not an RSA key", false},
                          {"junk", ENOMEM, "no public key in PEM", false},
                          {"absent", ENOENT, "absent: No such file", false}};
    const std::string text = kSmallSpec;
    const std::string signature = read("signature");
    for (const Case& row : cases) {
        const std::string file = row.file;
        EXPECT_EQ(verifySpecSignature(pathOf(file).c_str(), text.data(), text.size(), signature.data(),
                                      signature.size()),
                  row.deviceReads)
            << file;
        for (const std::string command :
             {"check spec.lua", "inspect spec.lua", "attach spec.lua signature"}) {
            SCOPED_TRACE(command + " --pub " + file);
            EXPECT_EQ(shell("$PACK " + command + " --pub " + file), row.deviceReads == 0 ? 0 : 2) << said();
            EXPECT_NE(said().find(row.message), std::string::npos) << said();
        }
        if (!row.hasCommand) continue;
        const std::string todo = said().substr(said().rfind(": ") + 2);
        EXPECT_EQ(
            shell(
                "rm -f rovu_pub.pem && " + todo.substr(0, todo.size() - 1) +
                " >printed && { [ -e rovu_pub.pem ] || mv printed rovu_pub.pem; } && cmp rovu_pub.pem public"),
            0)
            << todo << said();
    }
}

// setsid takes the terminal away.
TEST_F(Keys, PassPhraseComesFromWhereTheOptionSays) {
    put("spec.lua", kSmallSpec);
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
                        {"--key-pass file:empty", 2, "holds no pass phrase"},
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
            EXPECT_EQ(read("copy.lua"), row.status == 0 ? read("plain.lua") : kSmallSpec);
        }
    }
}

}  // namespace
