// The reference files: the input as a whole file, and as the lines above a checksum that matches them.

#include "fuzz_target.h"
#include "ubi_tools/ref_checksums.h"
#include "util/fletcher32.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kMaxFile = 2047;
constexpr char kMarker[] = "#FLET32:";
constexpr size_t kChecksumLine = sizeof kMarker - 1 + 9;  // eight digits and a line feed

struct RefFile {
    MemoryFile file;
    MemoryFile rewritten;

    // Reads a file and, if it is sound, writes and reads what it holds.
    // \return the result of the first reading.
    int roundTrip(const std::string& bytes) {
        RefChecksumList list = {{"unchanged", ""}};
        file.fill(bytes.data(), bytes.size());
        const int rc = readRefFile(&list, file.path());
        require(rc == 0 || rc == EILSEQ, "a file that can be read is sound or not");
        if (rc != 0) {
            require(list == RefChecksumList{{"unchanged", ""}}, "the list is written on success only");
            return rc;
        }
        const int written = writeRefFile(list, rewritten.path());
        // Only the checksum can take more room than in the file that was read.
        require(written == 0 || (written == ENOBUFS && bytes.size() > kMaxFile - kChecksumLine),
                "what was read can be written");
        if (written != 0) return rc;
        RefChecksumList again;
        require(readRefFile(&again, rewritten.path()) == 0, "what was written can be read");
        require(again == list, "nothing is lost by writing and reading");
        return rc;
    }
};

std::string withChecksum(std::string lines) {
    // The checksum is of whole words of 16 bits, the last one padded.
    alignas(uint16_t) char words[kMaxFile + 1] = {};
    memcpy(words, lines.data(), lines.size());
    zem::Fletcher32 sum;
    sum.add(reinterpret_cast<const uint16_t*>(words), lines.size() + (lines.size() & 1));
    char line[kChecksumLine + 1];
    snprintf(line, sizeof line, "%s%08x\n", kMarker, sum.value());
    return lines.append(line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static RefFile* const ref = new RefFile;
    const std::string bytes(charsOf(data), size);
    static_cast<void>(ref->roundTrip(bytes));
    if (size + kChecksumLine > kMaxFile || bytes.find(kMarker) != std::string::npos) return 0;
    require(ref->roundTrip(withChecksum(bytes)) == 0, "lines above their own checksum are sound");
    return 0;
}
