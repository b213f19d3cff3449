// Whether a spec is for this device.

#include "inside.h"
#include "update_spec/device_check.h"

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
    const std::string longest(29, 'm');  // and a newline
    const struct {
        std::string model, hardware;
        bool fits;
    } rows[] = {
        {"RV-20", "RV-20", true}, {"b", "a,b", true},   {"abc \t ", "abc", true}, {longest, longest, true},
        {"", "", true},           {" ", "a,", true},    {"", "a,,b", true},       {"", "a,b", false},
        {"a,b", "a,b", false},    {"b", "a, b", false}, {"B", "b", false},        {"RV-2", "RV-20", false},
        {"RV-20", "RV-2", false}, {"x", "", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("model '" + row.model + "', spec for '" + row.hardware + "'");
        describe(row.model, "2.4.1");
        EXPECT_EQ(fits(row.hardware), row.fits);
        const std::string refusal =
            "HW model \"" + row.model + "\" is not supported in spec \"" + row.hardware + "\"\n";
        EXPECT_EQ(messages(), row.fits ? "" : refusal);
    }
}

TEST_F(InDevice, ModelAndVersionMustBeReadable) {
    const std::string longModel(30, 'm'), longest = "2." + std::string(59, '0');  // and newlines
    const std::string noModel = "Failed to read model number ",
                      noRootfs = "Failed to parse rootfs release number: ";
    const struct {
        std::string model, rootfs;
        const char* failure;
        std::string message;  // empty: the spec fits
    } rows[] = {
        {longModel, "2", "", noModel + "(31, 0, 0)\n"},
        {"m", "2", "readplatform.sh:1=exit:3", noModel + "(0, 3, 1)\n"},
        {"m", "2", "readplatform.sh:1=half:4", noModel + "(2, 4, 1)\n"},
        {"m", "12.3", "", ""},
        {"m", longest, "", ""},
        {"m", longest + "0", "", noRootfs + std::to_string(EOVERFLOW) + "\n"},
        {"m", "1.2a", "", noRootfs + std::to_string(EILSEQ) + "\n"},
        {"m", " ", "", noRootfs + std::to_string(EINVAL) + "\n"},
        {"m", "2", "readplatform.sh:2=half:3", noRootfs + "3\n"},
        {"m", "2", "readplatform.sh:2=signal:KILL", noRootfs + std::to_string(killed()) + "\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("model '" + row.model + "', rootfs '" + row.rootfs + "', failure '" + row.failure + "'");
        describe(row.model, row.rootfs);
        failCalls(row.failure);
        EXPECT_EQ(fits("m"), row.message.empty());
        EXPECT_EQ(messages(), row.message);
    }
}
