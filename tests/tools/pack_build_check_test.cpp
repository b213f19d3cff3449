// `rovu-pack build` publishes nothing that `rovu-pack check` calls an error, unless it is told to.

#include "pack_shell.h"
#include "support/crypto.h"

#include <regex>

namespace {

namespace fs = std::filesystem;

const std::string kKernel = "{ type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },\n";
const std::string kOptional = "{ type = 'kernel', update = 'optional', version = '2.0', image = 'k.img' },\n";
const std::string kRootfs = "{ type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' },\n";

std::string rootfsWith(const std::string& dep) {
    return "{ type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img',\n dep = { " + dep +
           " } },\n";
}

class PackBuildCheck : public PackShell {
protected:
    PackBuildCheck() {
        put("parts/k.img", "version=2.0\nkernel");
        put("parts/r.img", "version=2.0\nrootfs");
        EXPECT_EQ(run("keygen keys"), 0);
    }

    // Errors are kept apart.
    std::string said() const { return read("err"); }
    int run(const std::string& arguments) const { return shell("$PACK " + arguments + " >out 2>err"); }

    int build(const std::string& parts, const std::string& options = "",
              const std::string& url = "http://h/u") const {
        put("parts/m.lua", "{ version = 1, hardware = 'RV-20', clone_overlay = 1,\n" + parts + "}\n");
        return run("build parts/m.lua --out www --key keys/private.pem --base-url '" + url + "' " + options);
    }
};

struct ErrorRow {
    const char* name;
    std::string provoked;
    const char* said;  // severity, code and place
    std::string missed;
    const char* url = "http://h/u";  // of what is provoked
};

const ErrorRow kErrorRows[] = {
    {"no parts", "", "error    no-mandatory-image      parts/m.lua\n", kKernel},
    {"no mandatory image, in a file that is not there",
     "{ type = 'kernel', update = 'optional', version = '2.0', image = 'none.img' },",
     "error    no-mandatory-image      parts/m.lua\n", kKernel},
    {"a list that nothing satisfies",
     kKernel + rootfsWith("{ 'kernel', '2.0', '2.1' }, { '!kernel', '2.0', '2.1' }"),
     "error    dep-unsatisfiable       parts/m.lua:4 2.dep\n",
     kKernel + rootfsWith("{ 'kernel', '2.0', '2.1' }, { '!kernel', '2.0.1', '2.1' }")},
    {"a base URL with a query", kKernel + kRootfs, "error    tar-missing             parts/m.lua:2 1.url\n",
     kKernel + kRootfs, "http://h/x?token=1"},
};

TEST_F(PackBuildCheck, NothingIsMadeThatCheckCallsAnError) {
    for (const ErrorRow& row : kErrorRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(build(row.provoked, "", row.url), 1);
        EXPECT_NE(said().find(row.said), std::string::npos) << said();
        EXPECT_NE(said().find("rovu-pack build: nothing is made"), std::string::npos) << said();
        EXPECT_EQ(said().find(".rovu-pack."), std::string::npos) << "the hidden folder is nobody's business";
        EXPECT_EQ(read("out"), "");
        EXPECT_FALSE(exists("www"));

        EXPECT_EQ(build(row.missed), 0);
        EXPECT_EQ(said().find("error "), std::string::npos) << said();
        fs::remove_all(pathOf("www"));
    }
}

TEST_F(PackBuildCheck, ImagesAreJudgedByTheirBytes) {
    const struct {
        std::string kernel;
        int status;
    } rows[] = {
        {"<!doctype html>", 1},
        {std::string(300000, '\0'), 1},
        {std::string(300000, '\0') + "x", 0},
    };
    ASSERT_EQ(run("secret preshared"), 0);
    for (const auto& row : rows) {
        put("parts/k.img", row.kernel);
        EXPECT_EQ(build("encr_key_offset = 0," + kKernel + kRootfs, "--secrets preshared"), row.status);
        EXPECT_EQ(build(kKernel + kRootfs), row.status);
        EXPECT_EQ(said().find("error    not-an-image            parts/m.lua:2 1.image\n") == 0,
                  row.status == 1)
            << said();
    }
}

TEST_F(PackBuildCheck, EarlierUpdateSurvivesARefusal) {
    ASSERT_EQ(build(kKernel + kRootfs), 0);
    const std::string before = read("www/update.lua");
    put("parts/k.img", "version=2.1\nkernel");
    EXPECT_EQ(build(kOptional), 1);
    EXPECT_EQ(read("www/update.lua"), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(pathOf("www")), fs::directory_iterator()), 3);
    EXPECT_EQ(run("check www/update.lua --pub keys/rovu_pub.pem --files www --strict"), 0);
}

TEST_F(PackBuildCheck, ForceSignsAllTheSameAndSaysSo) {
    EXPECT_EQ(build(kOptional, "--force"), 0);
    EXPECT_NE(said().find("error    no-mandatory-image "), std::string::npos) << said();
    EXPECT_NE(said().find("rovu-pack build: signed in spite of the errors"), std::string::npos) << said();
    EXPECT_NE(read("out").find("update.lua"), std::string::npos);
    EXPECT_EQ(run("check www/update.lua --pub keys/rovu_pub.pem --files www"), 1);
}

TEST_F(PackBuildCheck, JsonHoldsWhatWasMadeAndWhatIsWrongWithIt) {
    struct Row {
        std::string parts, options;
        int status;
        Strings held;
    };
    const std::string image =
        R"("image": { "name": "k.img", "bytes": 18, "md5": ")" + md5Hex("version=2.0\nkernel") + "\" } }, {";
    const Row rows[] = {
        {kKernel + kRootfs,
         "",
         0,
         {R"("made": true, "errors": 0,)", R"("findings": [], "to_sign": null, "files": [ {)", image}},
        {kOptional,
         "",
         1,
         {R"("made": false, "errors": 1,)", R"("code": "no-mandatory-image",)", R"("files": [] })"}},
        {kOptional,
         "--force",
         0,
         {R"("made": true, "errors": 1,)", R"("code": "no-mandatory-image",)", image}},
        {"1",
         "",
         2,
         {R"({ "error": "parts/m.lua:2: entry 1: neither a script's name nor an image's table" })"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.parts + row.options);
        EXPECT_EQ(build(row.parts, "--json " + row.options), row.status);
        const std::string json = std::regex_replace(read("out"), std::regex("\\s+"), " ");
        for (const std::string& part : row.held)
            EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
        EXPECT_EQ(said().empty(), row.status != 2) << said();
    }
}

TEST_F(PackBuildCheck, WhatTheDeviceRefusesNoForceSigns) {
    const std::string name(32, 'x');
    put("parts/" + name, "true\n");
    EXPECT_EQ(build("'" + name + "',", "--force"), 2);
    EXPECT_FALSE(exists("www"));
}

TEST_F(PackBuildCheck, WarningsArePrintedAndNotesAreNot) {
    EXPECT_EQ(build(kKernel + kRootfs), 0);
    EXPECT_EQ(said(), "");
    EXPECT_EQ(build(kKernel), 0);
    EXPECT_NE(said().find("warning  stale-volume "), std::string::npos) << said();
    EXPECT_EQ(said().find("note "), std::string::npos) << said();
}

}  // namespace
