// rovu-bench-pieces: the time per call of pieces of the device program.
//
// With `download URL FILE`, `libcurl URL FILE` or `decrypt FILE` it does that work once and ends: a process of the same
// kind as the programs that it is compared with.

#include "transfers.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

// \return false if the words name no work.
bool doWork(const std::vector<std::string>& words) {
    if (words.size() == 3 && words[0] == "download") {
        download(words[1], words[2]);
    } else if (words.size() == 3 && words[0] == "libcurl") {
        downloadWithLibcurl(words[1], words[2]);
    } else if (words.size() == 2 && words[0] == "decrypt") {
        decryptInPlace(words[1]);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (doWork({argv + 1, argv + argc})) return 0;
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            fprintf(stderr, "usage: rovu-bench-pieces [--benchmark_...]\n"
                            "       rovu-bench-pieces download URL FILE | libcurl URL FILE | decrypt FILE\n");
            return 2;
        }
        benchmark::RunSpecifiedBenchmarks();
        return 0;
    } catch (const std::exception& error) {
        fprintf(stderr, "rovu-bench-pieces: %s\n", error.what());
        return 1;
    }
}
