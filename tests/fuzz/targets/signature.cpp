// A spec's file up to the verdict on its signature: marker, Base64, verification.

#include "fuzz_target.h"
#include "update_spec/spec_signature.h"
#include "update_spec/spec_text.h"

#include <cstring>

namespace {

// The public half of a key pair, and all that was ever signed with the other: a file that verifies holds this very text.
constexpr char kPublicKey[] = "-----BEGIN PUBLIC KEY-----\n"
                              "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAqwK9cyrM/IWQVBeamZeH\n"
                              "nmM7KNtsh5gv392sT079euE4pgoG4cME+YtKsVM30AvpMJYh/DtWw9K2TvOKwFNo\n"
                              "ozGhV389OIO8poQG5UD+/SQA7swkyjt0TKyMqX1MFRrk9p2PU/dlwKaG6+vYfalq\n"
                              "JQL9/kTvZKss15t+s/l9ajUezY9iSggtrqVEaZQ60oG+w8wqncI36ElCeKYV0EH5\n"
                              "/qV5LI4eqnIp2D5Hqt1WdyCp7uZ6OaevsT9oZwdJeeWTOGBSq2ccByDJ7KM3Bgcb\n"
                              "oOlPM5Y6olfKLM02XVFCUh1p4qgbKMe1m15w/5KglCxnHqVVxGy7BAoEC+187O99\n"
                              "KQIDAQAB\n"
                              "-----END PUBLIC KEY-----\n";

constexpr char kSignedText[] = "{ version = 1, hardware = \"RV-20\" }\n";

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

    SpecBuffer spec(size);
    if (size != 0) memcpy(spec.bytes, data, size);
    if (!authenticateSpec(key->path().c_str(), "spec", &spec)) return 0;
    require(std::string(spec.bytes, spec.textLength) == kSignedText, "only what was signed verifies");
    return 0;
}
