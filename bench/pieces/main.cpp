// rovu-bench-pieces: benchmarks of pieces of the device program.
//
// With `download URL FILE` or `decrypt FILE` it does that work once and ends: a process of the same kind as the programs
// that it is compared with.

#include "benchmarks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t kMebibyte = 1024UL * 1024;

struct Sizes {
    int pairs = 21;
    size_t download = 256 * kMebibyte;   // bytes
    size_t decryption = 64 * kMebibyte;  // bytes
};

int doWork(char** words) {
    try {
        if (strcmp(words[1], "download") == 0) {
            download(words[2], words[3]);
        } else {
            decryptInPlace(words[2]);
        }
        return 0;
    } catch (const std::exception& error) {
        fprintf(stderr, "rovu-bench-pieces: %s\n", error.what());
        return 1;
    }
}

bool isWork(int argc, char** argv) {
    return (argc == 4 && strcmp(argv[1], "download") == 0) || (argc == 3 && strcmp(argv[1], "decrypt") == 0);
}

// `--pairs=N --download=MIB --decryption=MIB`, in any order. \return false for anything else.
bool readSizes(int argc, char** argv, Sizes* sizes) {
    for (int i = 1; i < argc; ++i) {
        unsigned int value = 0;
        if (sscanf(argv[i], "--pairs=%u", &value) == 1 && value > 0) {
            sizes->pairs = static_cast<int>(value);
        } else if (sscanf(argv[i], "--download=%u", &value) == 1 && value > 0) {
            sizes->download = value * kMebibyte;
        } else if (sscanf(argv[i], "--decryption=%u", &value) == 1 && value > 0) {
            sizes->decryption = value * kMebibyte;
        } else {
            return false;
        }
    }
    return true;
}

// Prints to the console, and remembers whether a benchmark failed: the library itself does not tell.
class Reporter : public benchmark::ConsoleReporter {
public:
    Reporter() : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            failed = failed || run.error_occurred;
        ConsoleReporter::ReportRuns(runs);
    }

    bool failed = false;
};

void registerPair(const char* name, int pairs, const std::function<void(benchmark::State&)>& bench) {
    const auto guarded = [bench](benchmark::State& state) {
        try {
            bench(state);
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    };
    benchmark::RegisterBenchmark(name, guarded)
        ->Iterations(pairs)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

void registerAll(const Sizes& sizes, const std::string& self) {
    registerPair("download/libcurl", sizes.pairs,
                 [=](benchmark::State& state) { benchDownloadAgainstLibcurl(state, sizes.download); });
    registerPair("download/curl", sizes.pairs,
                 [=](benchmark::State& state) { benchDownloadAgainstCurl(state, sizes.download, self); });
    registerPair("control/curl", sizes.pairs,
                 [=](benchmark::State& state) { benchCurlAgainstItself(state, sizes.download); });
    registerPair("decryption/openssl", sizes.pairs, [=](benchmark::State& state) {
        benchDecryptionAgainstOpenssl(state, sizes.decryption, self);
    });
    benchmark::RegisterBenchmark("fletcher32/4096", benchFletcher32);
    benchmark::RegisterBenchmark("version", benchVersion);
    benchmark::RegisterBenchmark("spec/read", benchSpecReading);
    benchmark::RegisterBenchmark("spec/signature", benchSpecSignature);
}

}  // namespace

int main(int argc, char** argv) {
    if (isWork(argc, argv)) return doWork(argv);
    benchmark::Initialize(&argc, argv);
    Sizes sizes;
    if (!readSizes(argc, argv, &sizes)) {
        fprintf(stderr,
                "usage: rovu-bench-pieces [--pairs=N] [--download=MIB] [--decryption=MIB] [--benchmark_...]\n"
                "       rovu-bench-pieces download URL FILE | decrypt FILE\n");
        return 2;
    }
    registerAll(sizes, argv[0]);
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return reporter.failed ? 1 : 0;
}
