#include "util/fletcher32.h"

#include <algorithm>
#include <cassert>

namespace zem {

namespace {

// With both sums folded before, 359 words of 0xFFFF still leave `sum2` within 32 bits.
constexpr size_t kBlockWords = 359;

}  // namespace

void Fletcher32::add(const uint16_t* words, size_t size) {
    assert((size & 1) == 0);
    const unsigned char* byte = reinterpret_cast<const unsigned char*>(words);
    size_t left = size / 2;
    while (left > 0) {
        const size_t block = std::min(left, kBlockWords);
        for (size_t i = 0; i < block; ++i, byte += 2) {
            sum1 += static_cast<uint32_t>(byte[0] << 8 | byte[1]);
            sum2 += sum1;
        }
        left -= block;
        fold();
    }
    // A single fold can leave a carry of one.
    fold();
}

void Fletcher32::fold() {
    sum1 = (sum1 >> 16) + (sum1 & 0xFFFF);
    sum2 = (sum2 >> 16) + (sum2 & 0xFFFF);
}

}  // namespace zem
