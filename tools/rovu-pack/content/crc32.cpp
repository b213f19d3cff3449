#include "crc32.h"

#include <array>

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;

constexpr std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table = {};
    for (uint32_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = (table[i] & 1) != 0 ? table[i] >> 1 ^ kPolynomial : table[i] >> 1;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = makeTable();

}  // namespace

void Crc32::add(const char* bytes, size_t size) {
    for (size_t i = 0; i < size; ++i)
        state_ = kTable[(state_ ^ static_cast<unsigned char>(bytes[i])) & 0xFF] ^ (state_ >> 8);
}
