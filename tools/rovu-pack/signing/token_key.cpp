#include "token_key.h"

#include "crypto_fault.h"
#include "handles.h"
#include "token_uri.h"

#include <cerrno>
#include <openssl/engine.h>
#include <openssl/ui.h>

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
        return cryptoFault("the engine \"pkcs11\" does not start", EIO);
    const RunningEngine running(engine.get());
    EVP_PKEY* found = ENGINE_load_private_key(engine.get(), split.object.c_str(), method.get(), pin.get());
    *key = SigningKey(found, [pin, method](EVP_PKEY* used) { EVP_PKEY_free(used); });
    return found != nullptr ? Fault() : refusal(split.object, *pin);
}
