// Whether a spec is for this device.

#include "device_check.h"
#include "inside.h"

#include <cstring>

namespace {

// A spec without parts.
bool fits(const std::string& hardware) {
    UpdateSpecVer1* spec = static_cast<UpdateSpecVer1*>(calloc(1, sizeof(UpdateSpecVer1)));
    initParts(spec);
    strcpy(spec->hardware, hardware.c_str());
    const bool good = checkSpecForDevice(spec);
    freeSpec(spec);
    return good;
}

}  // namespace

TEST_F(InDevice, ModelMustBeAWholeTokenOfTheSpecsList) {
    const std::string longest(29, 'm');  // and a line feed
    const Table<std::string, std::string, bool> rows = {
        {"RV-20", "RV-20", true}, {"b", "a,b", true},   {"abc \t ", "abc", true}, {longest, longest, true},
        {"", "", true},           {" ", "a,", true},    {"", "a,,b", true},       {"", "a,b", false},
        {"a,b", "a,b", false},    {"b", "a, b", false}, {"B", "b", false},        {"RV-2", "RV-20", false},
        {"RV-20", "RV-2", false}, {"x", "", false}};
    for (const auto& [model, hardware, good] : rows) {
        SCOPED_TRACE(model + " of " + hardware);
        describe(model, "2.4.1");
        EXPECT_EQ(fits(hardware), good);
        const std::string refused =
            "HW model \"" + model + "\" is not supported in spec \"" + hardware + "\"\n";
        EXPECT_EQ(messages(), good ? "" : refused);
    }
}

TEST_F(InDevice, ModelAndVersionMustBeReadable) {
    const std::string longModel(30, 'm'), longest = "2." + std::string(59, '0');  // and line feeds
    const std::string noModel = "Failed to read model number ",
                      no = "Failed to parse rootfs release number: ";
    const Table<std::string, std::string, const char*, std::string> rows = {
        {longModel, "2", "", noModel + "(31, 0, 0)\n"},
        {"m", "2", "readplatform.sh:1=exit:3", noModel + "(0, 3, 1)\n"},
        {"m", "2", "readplatform.sh:1=half:4", noModel + "(2, 4, 1)\n"},
        {"m", "12.3", "", ""},
        {"m", longest, "", ""},
        {"m", longest + "0", "", no + std::to_string(EOVERFLOW) + "\n"},
        {"m", "1.2a", "", no + std::to_string(EILSEQ) + "\n"},
        {"m", " ", "", no + std::to_string(EINVAL) + "\n"},
        {"m", "2", "readplatform.sh:2=half:3", no + "3\n"},
        {"m", "2", "readplatform.sh:2=signal:KILL", no + std::to_string(killed()) + "\n"}};
    for (const auto& [model, rootfs, rule, said] : rows) {
        SCOPED_TRACE(model + " with " + rootfs + " " + rule);
        describe(model, rootfs);
        failCalls(rule);
        EXPECT_EQ(fits("m"), said.empty());
        EXPECT_EQ(messages(), said);
    }
}
