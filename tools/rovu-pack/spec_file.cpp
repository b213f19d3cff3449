// The device stops at its first complaint; here the next stage is tried all the same, so that one check shows
// as much as it can.

#include "spec_file.h"

#include "check_device_log.h"
#include "settings.h"
#include "spec_reader.h"
#include "spec_signature.h"
#include "spec_text.h"
#include "text_files.h"

#include <cctype>
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

// The only key that the message names between double quotes.
std::string keyInMessage(const SpecFile& spec, const std::string& message) {
    const size_t open = message.find('"');
    const size_t close = message.find('"', open + 1);
    if (open == std::string::npos || close == std::string::npos) return "";
    const std::string word = message.substr(open + 1, close - open - 1);
    std::string found;
    for (const auto& line : spec.lines) {
        const size_t dot = line.first.rfind('.');
        if (line.first.substr(dot == std::string::npos ? 0 : dot + 1) != word) continue;
        if (!found.empty()) return "";
        found = line.first;
    }
    return found;
}

void refuse(SpecFile* spec, UpdateState state, DeviceLog* log, Findings* findings) {
    const std::string message = log->takeText();
    FindingPlace place = spec->at(keyInMessage(*spec, message));
    if (int line = lineInMessage(message); line != 0) place.line = line;
    findings->add(eDeviceRefuses, place, "Every device refuses the spec: " + message + ".");
    if (spec->refusedIn == eStateInvalid) spec->refusedIn = state;
}

void askDevice(SpecFile* spec, Findings* findings) {
    DeviceLog log;
    if (!authenticate(*spec)) refuse(spec, eStateDownloadingSpec, &log, findings);
    lua_State* L = evaluate(*spec);
    if (L == nullptr) return refuse(spec, eStateDownloadingSpec, &log, findings);
    const SpecRecord record(readSpec(L), freeSpec);
    if (record == nullptr) refuse(spec, eStateParsingSpec, &log, findings);
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
