#include "device_verdict.h"

#include "device_log.h"
#include "foreign_characters.h"
#include "lua_state.h"
#include "lua_util/sandbox.h"
#include "lua_variables.h"
#include "refused_key.h"
#include "signing.h"
#include "spec_reader.h"
#include "spec_signature.h"
#include "spec_text.h"
#include "spec_view.h"
#include "util/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr char kManifestAdvice[] =
    "This seems to be a manifest: check the spec that \"rovu-pack build\" makes of it, update.lua in its --out.";
constexpr char kTrialName[] = "update.lua";  // in the device's messages

bool fill(SpecBuffer* buffer, const std::string& bytes) {
    buffer->fileSize = bytes.size();
    buffer->textLength = bytes.size();
    buffer->capacity = bytes.size() + kWrapSize;
    buffer->bytes = static_cast<char*>(malloc(buffer->capacity));
    if (buffer->bytes == nullptr) return false;
    memcpy(buffer->bytes, bytes.data(), bytes.size());
    return true;
}

// Without a key a signature that is there cannot be judged; one that is not there still can.
bool authenticate(const SpecFile& spec, const SignatureUse& use) {
    if (spec.hasMarker && use.publicKey.empty()) return true;
    SpecBuffer buffer;
    return fill(&buffer, spec.bytes) &&
           authenticateSpec(use.isUnsigned ? nullptr : use.publicKey.c_str(), spec.path, &buffer);
}

LuaState evaluate(const SpecFile& spec) {
    SpecBuffer buffer;
    return LuaState(fill(&buffer, spec.text) ? evaluateSpec(&buffer) : nullptr);
}

SpecRecord recordOf(LuaState state) {
    return SpecRecord(state == nullptr ? nullptr : readSpec(state.release()), freeSpec);
}

std::string adviceOnSignature(const SpecFile& spec, const std::string& key) {
    if (!spec.hasMarker) return "Sign the spec, or give --unsigned if the devices run with \"-k NONE\".";
    if (spec.awaitsSignature()) return "Let the spec be signed, and append the signature: rovu-pack attach.";
    return "Sign the spec as it is now, with the private key that belongs to " + key + ".";
}

Finding& refuse(UpdateState state, const FindingPlace& place, const std::string& message,
                DeviceVerdict* verdict) {
    if (verdict->refusedIn == eStateInvalid) verdict->refusedIn = state;
    return verdict->findings.add(eDeviceRefuses, place,
                                 withFullStop("Every device refuses the spec: " + message));
}

void judgeSignature(const SpecFile& spec, const SignatureUse& use, DeviceLog* log, DeviceVerdict* verdict) {
    if (authenticate(spec, use)) return;
    const FindingPlace place = spec.hasMarker ? spec.atByte(spec.text.size()) : spec.at("");
    refuse(eStateDownloadingSpec, place, log->takeText(), verdict).advice =
        adviceOnSignature(spec, use.publicKey);
}

void judgeTable(const SpecFile& spec, DeviceLog* log, DeviceVerdict* verdict) {
    LuaState state = evaluate(spec);
    if (state == nullptr) {
        const std::string message = log->takeText();
        Finding& finding =
            refuse(eStateDownloadingSpec, {spec.path, "", lineInLuaMessage(message)}, message, verdict);
        const std::string cause = foreignCharacter(spec.text, message);
        if (!cause.empty()) finding.advice = "On that line " + cause + ".";
        if (readsVariables(message)) finding.advice = kManifestAdvice;
        return;
    }
    if (recordOf(std::move(state)) != nullptr) return;
    const std::string message = log->takeText();
    const bool isSmall = spec.bytes.size() <= kMaxSpecSize;  // a larger one would take too long
    const std::string key = isSmall ? refusedKey(evaluate(spec)) : "";
    refuse(eStateParsingSpec, spec.at(key), message, verdict);
}

// The public key as a file for the device's code, which opens it by its path. It lies in memory.
class KeyInMemory {
public:
    explicit KeyInMemory(const std::string& pem) : file_(memfd_create("key", MFD_CLOEXEC)) {
        const ssize_t size = static_cast<ssize_t>(pem.size());
        if (file_.get() >= 0 && write(file_.get(), pem.data(), pem.size()) == size)
            path_ = "/proc/self/fd/" + std::to_string(file_.get());
    }

    // Empty if there is no memory for the file.
    const std::string& path() const { return path_; }

private:
    zem::Descriptor file_;
    std::string path_;
};

bool isTextAccepted(const std::string& text) {
    SpecBuffer buffer;
    return fill(&buffer, text) && recordOf(LuaState(evaluateSpec(&buffer))) != nullptr;
}

Fault refuseSize(size_t size) {
    if (size <= kMaxSpecSize) return {};
    return {EINVAL, "the spec has " + std::to_string(size) +
                        " bytes with its signature, and a device takes " + std::to_string(kMaxSpecSize)};
}

// The first message names the cause.
Fault refusal(const std::string& spec, DeviceLog* log) {
    std::string message = "the device refuses the spec: " + log->takeFirstLine();
    if (spec.find("function") != std::string::npos) message += " (the word \"function\" stands in it)";
    return {EINVAL, message};
}

bool isAccepted(const std::string& spec, const std::string& publicPem) {
    SpecBuffer buffer;
    const KeyInMemory key(publicPem);
    if (key.path().empty() || !fill(&buffer, spec)) return false;
    if (!authenticateSpec(key.path().c_str(), kTrialName, &buffer)) return false;
    return recordOf(LuaState(evaluateSpec(&buffer))) != nullptr;
}

}  // namespace

DeviceVerdict judge(const SpecFile& spec, const SignatureUse& use) {
    DeviceVerdict verdict;
    DeviceLog log;
    if (spec.bytes.size() > kMaxSpecSize) verdict.refusedIn = eStateDownloadingSpec;
    judgeSignature(spec, use, &log, &verdict);
    judgeTable(spec, &log, &verdict);
    if (!spec.hasMarker && viewOf(spec).isManifest()) {
        for (Finding& finding : verdict.findings.all)
            finding.advice = kManifestAdvice;
    }
    return verdict;
}

SpecRecord readRecord(const SpecFile& spec) {
    return recordOf(evaluate(spec));
}

Fault tryOnDevice(const std::string& spec, const std::string& publicPem) {
    if (Fault fault = refuseSize(spec.size())) return fault;
    DeviceLog log;
    return isAccepted(spec, publicPem) ? Fault() : refusal(spec, &log);
}

Fault tryTextOnDevice(const std::string& text) {
    if (Fault fault = refuseSize(specOf(text, "").size() + kSignatureTextSize)) return fault;
    DeviceLog log;
    return isTextAccepted(text) ? Fault() : refusal(text, &log);
}
