// The Fletcher-32 checksum over big-endian 16-bit words, with both sums starting at 0xFFFF.
//
// See J. G. Fletcher, "An Arithmetic Checksum for Serial Transmissions", IEEE Transactions on
// Communications, 1982.

#pragma once

#include <cstddef>
#include <cstdint>

namespace zem {

class Fletcher32 {
public:
    /// Adds `size` bytes, which must be an even number: an odd one is fatal. A word's first byte in memory
    /// is its high byte on every processor, so the same bytes have the same sum everywhere.
    void add(const uint16_t* words, size_t size);

    /// The checksum of everything added so far; 0xFFFFFFFF for nothing.
    uint32_t value() const { return sum2 << 16 | sum1; }

private:
    void fold();

    uint32_t sum1 = 0xFFFF;
    uint32_t sum2 = 0xFFFF;
};

}  // namespace zem
