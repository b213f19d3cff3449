#include "unit_test.h"
#include "util/fletcher32.h"

namespace {

uint32_t sumOf(const std::string& bytes, size_t firstPiece = 0) {
    alignas(uint16_t) char words[4096] = {};
    bytes.copy(words, sizeof words);
    zem::Fletcher32 sum;
    sum.add(reinterpret_cast<const uint16_t*>(words), firstPiece);
    sum.add(reinterpret_cast<const uint16_t*>(words + firstPiece), bytes.size() - firstPiece);
    return sum.value();
}

// The definition itself: both sums modulo 65535, where 65535 stands for 0.
uint32_t definition(const std::string& bytes) {
    uint32_t sum1 = 0, sum2 = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum1 = (sum1 + static_cast<unsigned char>(bytes[i]) * (i % 2 == 0 ? 256U : 1U)) % 65535;
        sum2 = (sum2 + (i % 2 == 0 ? 0 : sum1)) % 65535;
    }
    return (sum2 == 0 ? 65535 : sum2) << 16 | (sum1 == 0 ? 65535 : sum1);
}

}  // namespace

TEST(Fletcher32, HasTheSumsOfTheWorkedExamples) {
    EXPECT_EQ(sumOf(""), 0xFFFFFFFFU);
    EXPECT_EQ(sumOf("abc\0"s), 0x25C5C462U);
    EXPECT_EQ(sumOf(std::string(720, '\xFF')), 0xFFFFFFFFU);
}

TEST(Fletcher32, FollowsItsDefinitionWhateverTheLengthAndThePieces) {
    for (size_t words : {1U, 2U, 358U, 359U, 360U, 361U, 718U, 719U, 2000U}) {
        std::string counting;
        while (counting.size() < 2 * words)
            counting += static_cast<char>(counting.size() * 7 + counting.size() / 256);
        for (const std::string& bytes : {counting, std::string(2 * words, '\xFF')}) {
            EXPECT_EQ(sumOf(bytes), definition(bytes)) << words;
            EXPECT_EQ(sumOf(bytes, words / 2 * 2), definition(bytes)) << words;
        }
    }
}

TEST(Fletcher32DeathTest, RefusesAnOddSize) {
    EXPECT_DEATH(sumOf("abc"), "\\(size & 1\\) == 0");
}
