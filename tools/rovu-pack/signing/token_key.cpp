#include "signing/token_key.h"

#include "host/handles.h"
#include "host/text.h"
#include "signing/key_files.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <openssl/engine.h>
#include <openssl/ui.h>

namespace {

constexpr char kScheme[] = "pkcs11:";
constexpr char kFileScheme[] = "file:";

std::string decodePercent(const std::string& text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isCode = text[i] == '%' && i + 2 < text.size() &&
                            isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                            isxdigit(static_cast<unsigned char>(text[i + 2]));
        if (isCode) {
            decoded += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

bool takePin(const std::string& attribute, TokenUri* uri) {
    std::string value;
    if (splitStart(attribute, "pin-value=", &value)) {
        uri->pin = decodePercent(value);
    } else if (splitStart(attribute, "pin-source=", &value)) {
        uri->pinSource = decodePercent(value);
        splitStart(uri->pinSource, kFileScheme, &uri->pinSource);
    } else {
        return false;
    }
    return true;
}

// The attributes that do not name the PIN.
std::string keepOthers(const std::string& attributes, char separator, TokenUri* uri) {
    std::string kept;
    for (size_t at = 0; at <= attributes.size();) {
        const size_t end = std::min(attributes.find(separator, at), attributes.size());
        const std::string attribute = attributes.substr(at, end - at);
        if (!takePin(attribute, uri)) kept += (kept.empty() ? "" : std::string(1, separator)) + attribute;
        at = end + 1;
    }
    return kept;
}

}  // namespace

bool isTokenUri(const std::string& name) {
    return startsWith(name, kScheme);
}

TokenUri splitTokenUri(const std::string& uri) {
    TokenUri split;
    const size_t start = sizeof kScheme - 1;
    const size_t question = std::min(uri.find('?'), uri.size());
    split.object = kScheme + keepOthers(uri.substr(start, question - start), ';', &split);
    const std::string query = question < uri.size() ? uri.substr(question + 1) : "";
    const std::string rest = keepOthers(query, '&', &split);
    if (!rest.empty()) split.object += "?" + rest;
    return split;
}

namespace {

constexpr char kEngine[] = "pkcs11";
constexpr int kPinIncorrect = 0xA0;  // CKR_PIN_INCORRECT of PKCS#11

// A structural reference, which is what ENGINE_by_id() gives, and a functional one.
using EngineReference = Handle<ENGINE, ENGINE_free>;
using RunningEngine = Handle<ENGINE, ENGINE_finish>;

Fault takePin(const TokenUri& uri, PassPhrase* pin) {
    if (uri.pin.empty() && uri.pinSource.empty()) return {};
    if (pin->isGiven())
        return {EINVAL, uri.object + ": its PIN is in the URI and in --key-pass; leave one of them out"};
    if (!uri.pin.empty()) return pin->set(uri.pin, "pin-value");
    return pin->read("file:" + uri.pinSource, "pin-source");
}

// The first of libcrypto's reasons is the cause: "PIN incorrect", "object not found".
Fault refusal(const std::string& uri, const PassPhrase& pin) {
    const unsigned long cause = ERR_peek_error();
    const char* reason = ERR_reason_error_string(cause);
    const Fault complaint = pin.complaint();
    if (pin.isRefused() || (ERR_GET_REASON(cause) == kPinIncorrect && complaint)) return complaint.of(uri);
    ERR_clear_error();
    return {ENOENT, uri + ": no private key: " + (reason == nullptr ? "the token gives no reason" : reason)};
}

// The token's prompt goes to the same place as that of an encrypted key file.
bool setPin(ENGINE* engine, UI_METHOD* method, PassPhrase* pin) {
    return ENGINE_ctrl(engine, ENGINE_CTRL_SET_USER_INTERFACE, 0, method, nullptr) == 1 &&
           ENGINE_ctrl(engine, ENGINE_CTRL_SET_CALLBACK_DATA, 0, pin, nullptr) == 1;
}

}  // namespace

Fault readTokenKey(const std::string& uri, const std::shared_ptr<PassPhrase>& pin, SigningKey* key) {
    const TokenUri split = splitTokenUri(uri);
    if (Fault fault = takePin(split, pin.get())) return fault;
    ERR_clear_error();
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    const EngineReference engine(ENGINE_by_id(kEngine));
    if (engine == nullptr) {
        return cryptoFault(
            "no engine \"pkcs11\" for tokens; it is in Debian's package libengine-pkcs11-openssl", ENOENT);
    }
    std::shared_ptr<UI_METHOD> method(UI_UTIL_wrap_read_pem_callback(PassPhrase::answer, 0),
                                      UI_destroy_method);
    if (method == nullptr || !setPin(engine.get(), method.get(), pin.get()) || ENGINE_init(engine.get()) != 1)
        return cryptoFault("the engine \"pkcs11\" cannot be initialized", EIO);
    const RunningEngine running(engine.get());
    EVP_PKEY* found = ENGINE_load_private_key(engine.get(), split.object.c_str(), method.get(), pin.get());
    *key = SigningKey(found, [pin, method](EVP_PKEY* used) { EVP_PKEY_free(used); });
    return found != nullptr ? Fault() : refusal(split.object, *pin);
}
