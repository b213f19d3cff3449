#include "unit_test.h"

TEST(Version, TakesUpToFourClampedFields) {
    const struct {
        const char* text;
        int result;
        const char* allFields;  // "none": nothing is written
    } rows[] = {
        {"1.2.3.4", 0, "1.2.3.4"},
        {"1.2", 0, "1.2.0.0"},
        {"7", 0, "7.0.0.0"},
        {"1.", 0, "1.0.0.0"},
        {"1..2", 0, "1.0.0.0"},
        {"1.2.3..", 0, "1.2.3.0"},
        {"1.2.3.4.5", 0, "1.2.3.4"},
        {"007", 0, "7.0.0.0"},
        {"65534.1", 0, "65534.1.0.0"},
        {"70000.1", 0, "65535.1.0.0"},  // clamped, never wrapped
        {"1.65536.65537", 0, "1.65535.65535.0"},
        {"4294967296.1", 0, "65535.1.0.0"},
        {"4294967295.0.4294967297", 0, "65535.0.65535.0"},
        {"18446744073709551617.1", 0, "65535.1.0.0"},
        {"99999999999999999999999999999", 0, "65535.0.0.0"},
        {".5", EINVAL, "none"},
        {".", EINVAL, "none"},
        {"", EINVAL, "none"},
        {"-1", EILSEQ, "none"},
        {"1.2a", EILSEQ, "none"},
        {"1.2.3.4.x", EILSEQ, "none"},
        {" 1", EILSEQ, "none"},
        {".x", EILSEQ, "none"},
        {"1\xB2", EILSEQ, "none"},
    };
    constexpr PackedVersion kUntouched = 0xDEADBEEF;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        PackedVersion version = kUntouched;
        char allFields[32];
        EXPECT_EQ(parseVersion(&version, row.text), row.result);
        EXPECT_STREQ(version == kUntouched ? "none" : formatVersion(version, allFields, sizeof allFields),
                     row.allFields);
    }
}
