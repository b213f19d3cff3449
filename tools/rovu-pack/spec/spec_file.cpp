// The device stops at its first complaint; here the next stage is tried all the same, so that one check shows
// as much as it can.

#include "spec_file.h"

#include "device_log.h"
#include "files.h"
#include "refused_key.h"
#include "settings.h"
#include "spec_reader.h"
#include "spec_signature.h"
#include "spec_text.h"

#include <algorithm>
#include <cerrno>

namespace {

constexpr size_t kMarkerSize = 2;
constexpr char kBehindChunkName[] = "\"]:";

void splitAtMarker(SpecFile* spec) {
    const char* bytes = spec->bytes.data();
    const char* marker = findSignatureMarker(bytes, spec->bytes.size());
    spec->hasMarker = marker != nullptr;
    const size_t length = marker == nullptr ? spec->bytes.size() : static_cast<size_t>(marker - bytes);
    spec->text = spec->bytes.substr(0, length);
    if (marker != nullptr) spec->signature = spec->bytes.substr(length + kMarkerSize);
}

uint32_t sizeOf(const SpecFile& spec) {
    return static_cast<uint32_t>(spec.bytes.size());
}

// Without a key a signature that is there cannot be judged; one that is not there still can.
bool authenticate(const SpecFile& spec) {
    const SignatureUse& use = spec.signatureUse;
    if (spec.hasMarker && use.publicKey.empty()) return true;
    const char* const before = keyPath;
    keyPath = use.isUnsigned ? nullptr : use.publicKey.c_str();
    SpecBuffer buffer;
    const bool good = readSpecFile(spec.path, sizeOf(spec), &buffer) && authenticateSpec(spec.path, &buffer);
    keyPath = before;
    return good;
}

lua_State* evaluate(const SpecFile& spec) {
    SpecBuffer buffer;
    if (!readSpecFile(spec.path, sizeOf(spec), &buffer)) return nullptr;
    buffer.textLength = spec.text.size();
    return evaluateSpec(&buffer);
}

// Lua names the chunk by its first line, and then the line.
int lineInMessage(const std::string& message) {
    const size_t at = message.find(kBehindChunkName);
    return at == std::string::npos ? 0 : atoi(message.c_str() + at + sizeof kBehindChunkName - 1);
}

Finding& refuse(SpecFile* spec, UpdateState state, const FindingPlace& place, const std::string& message,
                Findings* findings) {
    if (spec->refusedIn == eStateInvalid) spec->refusedIn = state;
    return findings->add(eDeviceRefuses, place, withFullStop("Every device refuses the spec: " + message));
}

std::string adviceOnSignature(const SpecFile& spec) {
    const std::string& key = spec.signatureUse.publicKey;
    const std::string& text = spec.signature;
    if (!spec.hasMarker) return "Sign the text, or give --unsigned if the devices run with \"-k NONE\".";
    if (verifySpecSignature(key.c_str(), "", 0, text.data(), text.size()) == ENOMEM)
        return key + " is no public key: give the one that the devices hold.";
    return "Sign the text as it is now, with the private key that belongs to " + key + ".";
}

void askDevice(SpecFile* spec, Findings* findings) {
    DeviceLog log;
    if (!authenticate(*spec)) {
        const FindingPlace place = spec->hasMarker ? spec->atByte(spec->text.size()) : spec->at("");
        refuse(spec, eStateDownloadingSpec, place, log.takeText(), findings).advice =
            adviceOnSignature(*spec);
    }
    lua_State* L = evaluate(*spec);
    if (L == nullptr) {
        const std::string message = log.takeText();
        const FindingPlace place = {spec->path, "", lineInMessage(message)};
        refuse(spec, eStateDownloadingSpec, place, message, findings);
        return;
    }
    const SpecRecord record(readSpec(L), freeSpec);
    if (record != nullptr) return;
    const std::string message = log.takeText();
    const bool isSmall = spec->bytes.size() <= kMaxSpecSize;  // a larger one would take too long
    const std::string key = isSmall ? refusedKey(evaluate(*spec)) : "";
    refuse(spec, eStateParsingSpec, spec->at(key), message, findings);
}

}  // namespace

FindingPlace SpecFile::at(const std::string& key) const {
    FindingPlace place = {path, key, 0};
    for (std::string around = key; !around.empty();) {
        const auto found = lines.find(around);
        if (found != lines.end()) {
            place.line = found->second;
            break;
        }
        const size_t dot = around.rfind('.');
        around.resize(dot == std::string::npos ? 0 : dot);
    }
    return place;
}

FindingPlace SpecFile::atByte(size_t position) const {
    const auto end = bytes.begin() + static_cast<long>(position);
    return {path, "", 1 + static_cast<int>(std::count(bytes.begin(), end, '\n'))};
}

int loadSpecFile(const std::string& path, const SignatureUse& signatureUse, SpecFile* spec,
                 Findings* findings, std::string* error) {
    if (int rc = readWholeFile(path, &spec->bytes, error); rc != 0) return rc;
    if (spec->bytes.size() > UINT32_MAX / 2) return fileError(path, EFBIG, error);
    spec->path = path;
    spec->signatureUse = signatureUse;
    splitAtMarker(spec);
    spec->lines = findTableLines(spec->text, &spec->repeatedKey);
    if (spec->bytes.size() > kMaxSpecSize) spec->refusedIn = eStateDownloadingSpec;
    askDevice(spec, findings);
    std::string complaint;  // the device has made its own
    spec->hasTable =
        evaluateLua(path, spec->text, &spec->table, &complaint) == 0 && spec->table.kind == LuaValue::eTable;
    return 0;
}

SpecRecord readRecord(const SpecFile& spec) {
    lua_State* L = evaluate(spec);
    return SpecRecord(L == nullptr ? nullptr : readSpec(L), freeSpec);
}
