#include "key_files.h"

#include "crypto_fault.h"
#include "files.h"
#include "handles.h"
#include "key_kinds.h"
#include "pass_phrase.h"
#include "token_key.h"
#include "token_uri.h"

#include <cerrno>
#include <cstdio>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <sys/stat.h>

namespace {

constexpr char kOnlyVerified[] =
    "; a device verifies RSA keys of 2048 bits only, which \"rovu-pack keygen\" makes";

using Bio = Handle<BIO, BIO_free>;
using RsaKey = Handle<RSA, RSA_free>;

std::string kindOf(const SigningKey& key) {
    if (EVP_PKEY_base_id(key.get()) == EVP_PKEY_RSA)
        return "an RSA key of " + std::to_string(EVP_PKEY_bits(key.get())) + " bits";
    const char* name = OBJ_nid2ln(EVP_PKEY_base_id(key.get()));
    return std::string("not an RSA key, but one of the kind ") + (name == nullptr ? "unknown" : name);
}

// After a failed read, whose reason libcrypto still knows.
Fault refusePrivate(const std::string& path) {
    Fault fault = cryptoFault(path + ": no private key in PEM", EINVAL);
    std::string bytes;
    if (readWholeFile(path, &bytes)) return fault;  // a pipe has been read already
    const std::string advice = adviceOnKeyFile(bytes, path, KeyUse::ePrivate);
    return advice.empty() ? fault : Fault(EINVAL, path + ": " + advice);
}

Fault readPrivateFile(const std::string& path, PassPhrase* passPhrase, SigningKey* key) {
    File file;
    if (Fault fault = openFileOrPipe(path, &file)) return fault;
    key->reset(PEM_read_PrivateKey(file.get(), nullptr, PassPhrase::answer, passPhrase), EVP_PKEY_free);
    if (*key != nullptr) return {};
    if (const Fault fault = passPhrase->complaint()) return fault.of(path);
    return refusePrivate(path);
}

Fault refusePublic(const std::string& path, const std::string& bytes) {
    const Fault fault = cryptoFault(path + ": no public key in PEM", EINVAL);
    const std::string advice = adviceOnKeyFile(bytes, path, KeyUse::ePublic);
    if (!advice.empty()) return {EINVAL, path + ": " + advice};
    const Bio memory(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    const SigningKey other(memory == nullptr ? nullptr
                                             : PEM_read_bio_PUBKEY(memory.get(), nullptr, nullptr, nullptr),
                           EVP_PKEY_free);
    ERR_clear_error();
    return other == nullptr ? fault : Fault(EINVAL, path + ": " + kindOf(other) + kOnlyVerified);
}

// The first one that libcrypto finds, as for the device's code. Null: none.
SigningKey deviceKeyIn(const std::string& bytes) {
    const Bio memory(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    if (memory == nullptr) return nullptr;
    RsaKey rsa(PEM_read_bio_RSA_PUBKEY(memory.get(), nullptr, nullptr, nullptr));
    SigningKey key(EVP_PKEY_new(), EVP_PKEY_free);
    if (rsa == nullptr || key == nullptr || EVP_PKEY_assign(key.get(), EVP_PKEY_RSA, rsa.get()) != 1)
        return nullptr;
    static_cast<void>(rsa.release());  // the key owns it now
    return key;
}

}  // namespace

Fault readSigningKey(const std::string& name, const std::string& passSource, SigningKey* key) {
    const bool isOnToken = isTokenUri(name);
    const auto passPhrase = std::make_shared<PassPhrase>(isOnToken ? "PIN" : "pass phrase");
    if (Fault fault = passPhrase->read(passSource, "--key-pass")) return fault;
    Fault fault =
        isOnToken ? readTokenKey(name, passPhrase, key) : readPrivateFile(name, passPhrase.get(), key);
    if (fault) return fault.of("--key");
    if (EVP_PKEY_base_id(key->get()) == EVP_PKEY_RSA && EVP_PKEY_bits(key->get()) == kKeyBits) return {};
    const std::string shownName = isOnToken ? splitTokenUri(name).object : name;
    return {EINVAL, "--key: " + shownName + ": " + kindOf(*key) + kOnlyVerified};
}

bool isReadableByOthers(const std::string& name) {
    struct stat status;
    return !isTokenUri(name) && stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
}

Fault readPublicKey(const std::string& path, PublicKey* key) {
    if (Fault fault = readWholeFile(path, &key->pem)) return fault;
    key->key = deviceKeyIn(key->pem);
    if (key->key == nullptr) return refusePublic(path, key->pem);
    if (EVP_PKEY_size(key->key.get()) == static_cast<int>(kSignatureSize)) return {};
    return {EINVAL, path + ": " + kindOf(key->key) + kOnlyVerified};
}
