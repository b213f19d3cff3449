// The benchmarks of this program, and the work that it does as a program of its own beside curl and openssl.

#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <string>

/// Downloads as the device program does, without a checksum. Throws std::runtime_error if that fails.
void download(const std::string& url, const std::string& target);

/// Decrypts the file at `path` as the device program does, with sampleFileKey(). Throws if that fails.
void decryptInPlace(const std::string& path);

// Pairs; see comparePairs(). `size` is in bytes, and `self` is the path of this program.
void benchDownloadAgainstLibcurl(benchmark::State& state, size_t size);
void benchDownloadAgainstCurl(benchmark::State& state, size_t size, const std::string& self);
void benchCurlAgainstItself(benchmark::State& state, size_t size);
void benchDecryptionAgainstOpenssl(benchmark::State& state, size_t size, const std::string& self);

// Time per call.
void benchFletcher32(benchmark::State& state);
void benchVersion(benchmark::State& state);
void benchSpecReading(benchmark::State& state);
void benchSpecSignature(benchmark::State& state);
