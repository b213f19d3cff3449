// Keys on a token: SoftHSM stands for the smart card or HSM, and signs the same bytes as the key's file.

#include "pack_shell.h"

#include <cstdlib>

namespace {

constexpr char kModule[] = "/usr/lib/softhsm/libsofthsm2.so";
// "update" is a plain key; "card" asks for the PIN at each signature, as the signing key of a smart card does.
class Token : public PackShell {
protected:
    Token() {
        setenv("SOFTHSM2_CONF", pathOf("softhsm2.conf").c_str(), 1);
        setenv("PKCS11_MODULE_PATH", kModule, 1);
        put("softhsm2.conf", "directories.tokendir = " + pathOf("tokens") + "\nlog.level = ERROR\n");
        put("tokens/README", "");
        put("spec.lua", kSmallSpec);
        put("pin", "4711\n");
        put("wrong", "4712\n");
        EXPECT_EQ(
            shell(
                "$PACK keygen keys && cp spec.lua signed.lua && $PACK sign signed.lua --key keys/private.pem &&"
                " openssl genrsa -out large.pem 3072 &&"
                " softhsm2-util --init-token --free --label fleet --pin 4711 --so-pin 1147 &&"
                " softhsm2-util --import keys/private.pem --token fleet --pin 4711 --label update --id 01 &&"
                " softhsm2-util --import large.pem --token fleet --pin 4711 --label large --id 02 &&"
                " openssl pkey -in keys/private.pem -outform DER -out private.der &&"
                " openssl pkey -in keys/private.pem -pubout -outform DER -out public.der &&"
                " write='pkcs11-tool --module " +
                std::string(kModule) +
                " --token-label fleet --login --pin 4711 --label card --id 03 --write-object' &&"
                " $write private.der --type privkey --usage-sign --always-auth &&"
                " $write public.der --type pubkey"),
            0)
            << said();
    }
};

TEST_F(Token, SignsAsTheKeyFileDoes) {
    for (const std::string arguments : {"'pkcs11:token=fleet;object=update;type=private' --key-pass file:pin",
                                        "'pkcs11:token=fleet;object=card' --key-pass fd:5 5<pin",
                                        "'pkcs11:token=fleet;object=card?pin-value=47%311'",
                                        "'pkcs11:token=fleet;pin-value=4711;object=update'",
                                        "\"pkcs11:token=fleet;id=%01?pin-source=file:$PWD/pin\""}) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(shell("cp spec.lua copy.lua && setsid -w $PACK sign copy.lua --key " + arguments), 0)
            << said();
        EXPECT_EQ(read("copy.lua"), read("signed.lua"));
    }
    EXPECT_EQ(
        shell("for key in keys/private.pem 'pkcs11:token=fleet;object=update'; do"
              " echo \"{ version = 1, hardware = 'RV-20', 'exit_success' }\" >m.lua &&"
              " $PACK build m.lua --out out --base-url http://h/u --key \"$key\" --key-pass file:pin || exit;"
              " mv out/update.lua \"${key%:*}.lua\" || exit; done; cmp keys/private.pem.lua pkcs11.lua"),
        0)
        << said();
}

TEST_F(Token, TroubleIsNamedAndKeepsThePinSecret) {
    struct Row {
        const char *before, *arguments, *message;
    };
    const Row rows[] = {
        {"", "'pkcs11:token=fleet;object=update' --key-pass file:wrong",
         "wrong PIN, which came from file:wrong"},
        {"", "'pkcs11:token=fleet;object=update?pin-value=4712'", "wrong PIN, which came from pin-value"},
        {"", "'pkcs11:token=fleet;object=update'",
         "no terminal to ask for it; name its source with --key-pass"},
        {"", "'pkcs11:token=fleet;object=update?pin-source=none'", "pin-source file:none: No such file"},
        {"", "'pkcs11:token=fleet;object=update?pin-source=pin' --key-pass file:pin",
         "leave one of them out"},
        {"", "'pkcs11:token=fleet;object=none?pin-value=4711'", "no private key: object not found"},
        {"", "'pkcs11:token=fleet;object=large?pin-value=4711'", "an RSA key of 3072 bits"},
        {"PKCS11_MODULE_PATH=none", "'pkcs11:token=fleet;object=update?pin-value=4711'", "PKCS#11 module"},
        {"OPENSSL_ENGINES=none", "'pkcs11:token=fleet;object=update?pin-value=4711'",
         "libengine-pkcs11-openssl"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments);
        // The engine never frees its tables of functions, which a build with sanitizers would report.
        const std::string line =
            std::string(" ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0 setsid -w $PACK sign spec.lua --key ") +
            row.arguments;
        EXPECT_EQ(shell(row.before + line), 2);
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
        EXPECT_EQ(said().find("471"), std::string::npos) << said();
        EXPECT_EQ(read("spec.lua"), kSmallSpec);
    }
}

}  // namespace
