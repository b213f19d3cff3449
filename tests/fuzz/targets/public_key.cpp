// The public key's file. An input that begins like a key in DER is put into PEM first, so that the fuzzer
// changes the key and not its Base64.

#include "device_key.h"
#include "fuzz_target.h"
#include "spec_signature.h"

#include <cerrno>
#include <cstring>
#include <openssl/err.h>
#include <openssl/evp.h>

namespace {

constexpr uint8_t kDerSequence = 0x30;

std::string pemOf(const uint8_t* der, size_t size) {
    std::string base64(size / 3 * 4 + 5, '\0');
    base64.resize(static_cast<size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), der, static_cast<int>(size))));
    std::string pem = "-----BEGIN PUBLIC KEY-----\n";
    for (size_t at = 0; at < base64.size(); at += 64)
        pem += base64.substr(at, 64) + "\n";
    return pem + "-----END PUBLIC KEY-----\n";
}

int verify(const std::string& keyFile, const char* text) {
    const int rc =
        verifySpecSignature(keyFile.c_str(), text, strlen(text), kSignature, sizeof kSignature - 1);
    ERR_clear_error();
    return rc;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile* const key = new MemoryFile;
    const std::string bytes =
        size != 0 && data[0] == kDerSequence ? pemOf(data, size) : std::string(charsOf(data), size);
    // libcrypto would ask the terminal for a pass phrase.
    if (bytes.find("ENCRYPTED") != std::string::npos) return 0;
    key->fill(bytes.data(), bytes.size());
    const int rc = verify(key->path(), kSignedText);
    require(rc == 0 || rc == ENOMEM || rc == EBADMSG, "a good signature is verified, or there is no key");
    if (rc == 0) require(verify(key->path(), "{}") == EBADMSG, "no key verifies another text");
    return 0;
}
