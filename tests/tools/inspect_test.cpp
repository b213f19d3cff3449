// What rovu-pack says of a file that someone found.

#include "pack_shell.h"

namespace {

constexpr char kManifest[] = R"({ version = 1, hardware = 'RV-20,RV-30', clone_overlay = 1, '_prepare',
  { type = 'kernel', update = 'optional', version = '2.0', image = 'k.img', preinst = '_prepare',
    dep = { { 'rootfs', '1.0', '2.9' }, { '!rootfs', '1.4', '1.5' } } },
  'exit_success' })";

class Inspect : public PackShell {
protected:
    Inspect() {
        put("m.lua", kManifest);
        put("_prepare", "echo\n");
        put("k.img", std::string(100000, 'k'));
        EXPECT_EQ(shell("$PACK keygen keys && $PACK keygen others && $BUILD/u m.lua --out out"), 0) << said();
    }
};

TEST_F(Inspect, ShowsTheStepsInTheirOrder) {
    ASSERT_EQ(pack("inspect out/update.lua"), 0);
    size_t at = 0;
    for (const char* part :
         {"not verified", "RV-20,RV-30", "encryption  none", "copied", "http://h/u/scripts.tar",
          "1           script _prepare", "2 kernel    2.0, optional, 100000 bytes",
          "k.img in http://h/u/kernel.tar", "needs rootfs 1.0 to 2.9, not rootfs 1.4 to 1.5",
          "runs _prepare before", "3           ends the run"}) {
        at = said().find(part, at);
        ASSERT_NE(at, std::string::npos) << part << "\n" << said();
    }
}

TEST_F(Inspect, NamesTheKeyThatSigned) {
    EXPECT_EQ(pack("inspect out/update.lua --pub others/rovu_pub.pem"), 1);
    EXPECT_NE(said().find("by another key"), std::string::npos) << said();
    EXPECT_EQ(pack("inspect out/update.lua --json --pub others/rovu_pub.pem --pub keys/rovu_pub.pem"), 0);
    EXPECT_NE(said().find(R"("key": "keys/rovu_pub.pem")"), std::string::npos) << said();
    const std::string json = said();
    ASSERT_EQ(shell("openssl pkey -pubin -in keys/rovu_pub.pem -outform DER | sha256sum | cut -c-64"), 0);
    EXPECT_NE(json.find(said().substr(0, 64)), std::string::npos) << json;
    EXPECT_EQ(pack("inspect out/update.lua --pub keys/private.pem"), 2);
}

TEST_F(Inspect, SaysWhatAnotherFileSeemsToBe) {
    struct Row {
        const char *file, *meaning;
    };
    put("empty", "");
    put("page", "<html></html>");
    put("word", "hello");
    put("zero", "0 is the first byte of a file in DER\n");
    put("broken", "{ version = 1,, }");
    put("large", std::string(1000000, ' '));
    const Row rows[] = {{"m.lua", "but a manifest"},
                        {"out/kernel.tar", "but a tar"},
                        {"keys/private.pem", "but a private key"},
                        {"keys/rovu_pub.pem", "but a public key"},
                        {"zero", "but text"},
                        {"empty", "but an empty file"},
                        {"page", "but a page"},
                        {"word", "but text that is not a table"},
                        {"broken", "broken"},
                        {"large", "too large"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        EXPECT_EQ(pack(std::string("inspect ") + row.file), 1);
        EXPECT_NE(said().find(row.meaning), std::string::npos) << said();
    }
    EXPECT_EQ(pack("inspect missing"), 2);
}

}  // namespace
