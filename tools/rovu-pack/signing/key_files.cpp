#include "key_files.h"

#include "crypto_fault.h"
#include "files.h"
#include "handles.h"
#include "pass_phrase.h"

#include <cerrno>
#include <cstdio>
#include <openssl/objects.h>
#include <openssl/pem.h>

namespace {

constexpr char kDerSequence = 0x30;  // the first byte of a key in DER

// What a file without a private key in PEM is instead, and what to do; empty if it is of no known kind.
std::string otherKindOf(const std::string& path) {
    std::string bytes;
    if (readWholeFile(path, &bytes)) return "";
    if (bytes.find("-----BEGIN CERTIFICATE-----") != std::string::npos)
        return "a certificate; give the private key that belongs to it";
    if (bytes.find("PUBLIC KEY-----") != std::string::npos)
        return "a public key; give the private key that belongs to it";
    if (!bytes.empty() && bytes[0] == kDerSequence) {
        return "not PEM; if it is a key in DER, convert it: openssl pkey -inform DER -in " + path +
               " -out KEY.pem";
    }
    return "";
}

std::string kindOf(const SigningKey& key) {
    if (EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA)
        return "an RSA key of " + std::to_string(EVP_PKEY_bits(key.get())) + " bits";
    const char* name = OBJ_nid2ln(EVP_PKEY_base_id(key.get()));
    return std::string("not an RSA key, but one of the kind ") + (name == nullptr ? "unknown" : name);
}

}  // namespace

Fault readSigningKey(const std::string& path, const std::string& passSource, SigningKey* key) {
    PassPhrase passPhrase;
    if (Fault fault = passPhrase.read(passSource)) return fault;
    const File file(fopen(path.c_str(), "re"));
    if (file == nullptr) return fileFault(path, errno);
    key->reset(PEM_read_PrivateKey(file.get(), nullptr, PassPhrase::answer, &passPhrase));
    if (*key == nullptr) {
        if (const Fault fault = passPhrase.complaint()) return fault.of(path);
        const Fault fault = cryptoFault(path + ": no private key in PEM", EINVAL);
        const std::string kind = otherKindOf(path);
        return kind.empty() ? fault : Fault(EINVAL, path + ": " + kind);
    }
    if (EVP_PKEY_base_id(key->get()) == EVP_PKEY_RSA && EVP_PKEY_bits(key->get()) == kKeyBits) return {};
    return {EINVAL, path + ": " + kindOf(*key) +
                        "; a device verifies RSA keys of 2048 bits only, which \"rovu-pack keygen\" makes"};
}

Fault readPublicKey(const std::string& path, SigningKey* key) {
    const File file(fopen(path.c_str(), "re"));
    if (file == nullptr) return fileFault(path, errno);
    key->reset(PEM_read_PUBKEY(file.get(), nullptr, nullptr, nullptr));
    return *key != nullptr ? Fault() : cryptoFault(path + ": no public key in PEM", EINVAL);
}
