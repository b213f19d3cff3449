// Keys of the wrong kind are called what they are.

#include "support/program.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

namespace {

constexpr char kPack[] = ROVU_PACK_PROGRAM;

TEST(Keys, OfTheWrongKindAreNamed) {
    const ScratchDir scratch;
    const auto shell = [&scratch](const std::string& line) {
        const std::string start = "cd '" + scratch.path + "' && PACK='" + kPack + "' && ";
        const std::string said = scratch.path + "/said";
        return Program({"/bin/sh", "-c", start + line}, said, said).wait();
    };
    const auto said = [&scratch] { return readWholeFile(scratch.path + "/said"); };
    writeWholeFile(
        scratch.path + "/spec.lua",
        "{ version = 1, hardware = 'RV-20', script_url = '', script_hash = '', script_dlsize = 0, 'exit_success' }\n");
    writeWholeFile(scratch.path + "/junk", "junk\n");
    ASSERT_EQ(
        shell(
            "$PACK keygen keys && cd keys && openssl pkey -in private.pem -outform DER -out ../der &&"
            " openssl req -x509 -key private.pem -subj /CN=x -out ../certificate &&"
            " cat ../certificate private.pem >../both && openssl rsa -in private.pem -traditional -out ../pkcs1 &&"
            " openssl genrsa -out ../large 4096 &&"
            " openssl ecparam -name prime256v1 -genkey -noout -out ../curve"),
        0)
        << said();
    struct Row {
        const char* file;
        int status;
        const char* message;
    };
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
        SCOPED_TRACE(row.file);
        EXPECT_EQ(shell(std::string("$PACK sign spec.lua --key ") + row.file), row.status) << said();
        EXPECT_NE(said().find(row.message), std::string::npos) << said();
    }
}

}  // namespace
