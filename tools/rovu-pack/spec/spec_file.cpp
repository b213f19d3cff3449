#include "spec_file.h"

#include "files.h"
#include "spec_signature.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace {

constexpr size_t kMarkerSize = 2;
constexpr char kWhitespace[] = " \t\r\n";

void splitAtMarker(SpecFile* spec) {
    const char* bytes = spec->bytes.data();
    const char* marker = findSignatureMarker(bytes, spec->bytes.size());
    spec->hasMarker = marker != nullptr;
    const size_t length = marker == nullptr ? spec->bytes.size() : static_cast<size_t>(marker - bytes);
    spec->text = spec->bytes.substr(0, length);
    if (marker != nullptr) spec->signature = spec->bytes.substr(length + kMarkerSize);
}

}  // namespace

bool SpecFile::awaitsSignature() const {
    return hasMarker && signature.find_first_not_of(kWhitespace) == std::string::npos;
}

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

Fault loadSpecFile(const std::string& path, SpecFile* spec) {
    std::string bytes;
    if (Fault fault = readWholeFile(path, &bytes)) return fault;
    if (bytes.size() > UINT32_MAX / 2) return fileFault(path, EFBIG);
    *spec = specFileOf(path, std::move(bytes));
    return {};
}

SpecFile specFileOf(const std::string& path, std::string bytes) {
    SpecFile spec;
    spec.path = path;
    spec.bytes = std::move(bytes);
    splitAtMarker(&spec);
    spec.lines = findTableLines(spec.text, &spec.repeatedKey);
    return spec;
}

void evaluateTable(SpecFile* spec) {
    spec->evaluation = evaluateLua(spec->path, spec->text, &spec->table);
    spec->hasTable = !spec->evaluation && spec->table.kind == LuaValue::eTable;
}
