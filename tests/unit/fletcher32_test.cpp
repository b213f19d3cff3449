#include "support/reference_file.h"
#include "unit_test.h"
#include "util/fletcher32.h"

namespace {

uint32_t checksumOf(const std::string& bytes, size_t firstPiece = 0) {
    alignas(uint16_t) char words[4096] = {};
    bytes.copy(words, sizeof words);
    zem::Fletcher32 checksum;
    checksum.add(reinterpret_cast<const uint16_t*>(words), firstPiece);
    checksum.add(reinterpret_cast<const uint16_t*>(words + firstPiece), bytes.size() - firstPiece);
    return checksum.value();
}

}  // namespace

TEST(Fletcher32, FollowsItsDefinitionForEveryLengthAndEveryPieces) {
    for (size_t words : {1U, 2U, 358U, 359U, 360U, 361U, 718U, 719U, 2000U}) {
        SCOPED_TRACE(words);
        std::string counting;
        while (counting.size() < 2 * words)
            counting += static_cast<char>(counting.size() * 7 + counting.size() / 256);
        for (const std::string& bytes : {counting, std::string(2 * words, '\xFF')}) {
            EXPECT_EQ(checksumOf(bytes), fletcher32(bytes));
            EXPECT_EQ(checksumOf(bytes, words / 2 * 2), fletcher32(bytes));
        }
    }
}
