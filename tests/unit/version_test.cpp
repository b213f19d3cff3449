#include "unit_test.h"
#include "util/version.h"

namespace {

// The version in full; or the result of a failure, which must not have written it.
std::string parsed(const std::string& text) {
    PackedVersion version = 0xDEADBEEF;
    char all[32];
    const int rc = parseVersion(&version, text.c_str());
    if (rc == 0) return formatVersion(version, all, sizeof all);
    EXPECT_EQ(version, 0xDEADBEEFU);
    return rc == EILSEQ ? "EILSEQ" : rc == EINVAL ? "EINVAL" : std::to_string(rc);
}

}  // namespace

TEST(Version, TakesUpToFourClampedFields) {
    expectRows(
        "1.2.3.4 => 1.2.3.4 | 1.2 => 1.2.0.0 | 7 => 7.0.0.0 | 1. => 1.0.0.0 | 1..2 => 1.0.0.0 | "
        "1.2.3.. => 1.2.3.0 | 1.2.3.4.5 => 1.2.3.4 | 007 => 7.0.0.0 | 65534.1 => 65534.1.0.0 | "
        "70000.1 => 65535.1.0.0 | 1.65536.65537 => 1.65535.65535.0 | 4294967296.1 => 65535.1.0.0 | "
        "4294967295.0.4294967297 => 65535.0.65535.0 | 18446744073709551617.1 => 65535.1.0.0 | "
        "99999999999999999999999999999 => 65535.0.0.0 | .5 => EINVAL | . => EINVAL |  => EINVAL | "
        "-1 => EILSEQ | 1.2a => EILSEQ | 1.2.3.4.x => EILSEQ |  1 => EILSEQ | .x => EILSEQ | 1\xB2 => EILSEQ",
        parsed);
}

TEST(Version, IsANumberThatComparesFieldByField) {
    PackedVersion lower = 0, version = 0;
    for (const char* text : {"0.0.0.1", "0.0.1", "0.1", "1", "1.0.0.1", "1.2", "1.2.0.65535", "2"}) {
        EXPECT_EQ(parseVersion(&version, text), 0);
        EXPECT_LT(lower, version) << text;
        lower = version;
    }
    EXPECT_EQ(lower, 0x0002000000000000U);
}
