// A spec's file up to the verdict on its signature: marker, Base64, verification.

#include "device_key.h"
#include "fuzz_target.h"
#include "spec_signature.h"
#include "spec_text.h"

#include <cstring>

namespace {

void checkMarker(const char* file, size_t size) {
    const char* marker = findSignatureMarker(file, size);
    const void* lastHyphen = memrchr(file, '-', size);
    if (marker == nullptr) return;
    require(marker >= file && marker + 1 == lastHyphen, "the marker ends with the last hyphen");
    require(marker[0] == '-', "the marker has two hyphens");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile* key = nullptr;
    if (key == nullptr) {
        key = new MemoryFile;
        key->fill(kPublicKey, sizeof kPublicKey - 1);
    }
    if (size > kMaxSpecSize) return 0;
    checkMarker(charsOf(data), size);

    SpecBuffer spec;
    spec.bytes = static_cast<char*>(malloc(size + 1));
    if (size != 0) memcpy(spec.bytes, data, size);
    spec.fileSize = size;
    spec.capacity = size + 1;
    if (!authenticateSpec(key->path().c_str(), "spec", &spec)) return 0;
    require(std::string(spec.bytes, spec.textLength) == kSignedText, "only what was signed verifies");
    return 0;
}
