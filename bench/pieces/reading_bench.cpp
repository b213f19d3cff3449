// The time per call of what reads small things: versions, checksums, and a spec of two images.

#include "lua_util/sandbox.h"
#include "support/crypto.h"
#include "support/program.h"
#include "update_spec/spec.h"
#include "update_spec/spec_reader.h"
#include "update_spec/spec_text.h"
#include "util/fletcher32.h"
#include "util/version.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

constexpr size_t kReferenceFileSize = 4096;

// Two images, as a release has them.
constexpr char kSpec[] = R"({
  version = 1, hardware = 'RV-20,RV-21', clone_overlay = 1, encr_key_offset = 0,
  script_url = 'http://updates.example/2.5/scripts.tar', script_dlsize = 10256,
  script_hash = '9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08',
  '_prepare.sh', 'before.sh',
  { type = 'kernel', update = 'mandatory', version = '3.10.53', imsize = 4000000, dlsize = 4010000,
    url = 'http://updates.example/2.5/kernel.tar', image = 'kernel.img',
    hash = '60303ae22b998861bce3b28f33eec1be758a213c86c93c076dbe9f558c11c752',
    image_md5 = 'd41d8cd98f00b204e9800998ecf8427e', preinst = 'pre.sh', postinst = 'post.sh',
    dep = { { 'rootfs', '1.0', '9.65535' } } },
  { type = 'rootfs', update = 'mandatory', version = '2.5.0', imsize = 24000000, dlsize = 24010000,
    url = 'http://updates.example/2.5/rootfs.tar', image = 'rootfs.img',
    hash = 'fd61a03af4f77d870fc21e05e7e80678095c92d808cfb3b5c279ee04c74aca13',
    image_md5 = '098f6bcd4621d373cade4e832627b4f6', preinst = 'pre.sh', postinst = 'post.sh',
    dep = { { 'kernel', '1.0', '9.65535' }, { '!kernel', '1.4.2', '1.4.7' } } },
}
)";

void fill(SpecBuffer* buffer, const std::string& file) {
    if (buffer->bytes == nullptr) throw std::bad_alloc();
    memcpy(buffer->bytes, file.data(), file.size());
}

void benchFletcher32(benchmark::State& state) {
    const std::string bytes(kReferenceFileSize, 'a');
    for (auto iteration : state) {
        static_cast<void>(iteration);
        zem::Fletcher32 checksum;
        checksum.add(reinterpret_cast<const uint16_t*>(bytes.data()), bytes.size());
        benchmark::DoNotOptimize(checksum.value());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}

void benchVersion(benchmark::State& state) {
    for (auto iteration : state) {
        static_cast<void>(iteration);
        PackedVersion version = 0;
        benchmark::DoNotOptimize(parseVersion(&version, "3.10.49.2"));
        benchmark::DoNotOptimize(version);
    }
}

void benchSpecReading(benchmark::State& state) {
    const std::string text = kSpec;
    for (auto iteration : state) {
        static_cast<void>(iteration);
        SpecBuffer buffer(text.size());
        fill(&buffer, text);
        lua_State* L = evaluateSpec(&buffer);
        UpdateSpecVer1* spec = L == nullptr ? nullptr : readSpec(L);
        if (spec == nullptr) throw std::runtime_error("the spec was refused");
        freeSpec(spec);
    }
}

void benchSpecSignature(benchmark::State& state) {
    const ScratchDir dir;
    const std::string keyFile = dir.path + "/key.pem";
    writeWholeFile(keyFile, publicKeyText());
    const std::string file = signedText(kSpec);
    for (auto iteration : state) {
        static_cast<void>(iteration);
        SpecBuffer buffer(file.size());
        fill(&buffer, file);
        if (!authenticateSpec(keyFile.c_str(), "spec", &buffer))
            throw std::runtime_error("the signature was refused");
    }
}

BENCHMARK(benchFletcher32)->Name("fletcher32/4096");
BENCHMARK(benchVersion)->Name("version");
BENCHMARK(benchSpecReading)->Name("spec/read");
BENCHMARK(benchSpecSignature)->Name("spec/signature");

}  // namespace
