#include "inspection.h"

#include "files.h"
#include "handles.h"
#include "key_files.h"
#include "key_kinds.h"
#include "limited_work.h"
#include "spec_signature.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace {

constexpr size_t kMostBytes = 65536;  // of a file that may be a spec, with room for one that is too large
constexpr size_t kTarMagicPlace = 257;

struct Magic {
    size_t place;
    std::string bytes;
    const char* meaning;
};

const Magic kMagics[] = {
    {kTarMagicPlace, "ustar", "a tar"},
    {0,
     "\x7f"
     "ELF",
     "a program"},
    {0, "#!", "a script"},
    {0, "<", "a page of HTML or XML"},
    {0, "\x1f\x8b", "a file compressed with gzip"},
    {0,
     "\xfd"
     "7zXZ",
     "a file compressed with xz"},
    {0, "hsqs", "a squashfs image"},
    {0, "UBI#", "a UBI image"},
    {0, "\x27\x05\x19\x56", "a uImage"},
    {0, "\xd0\x0d\xfe\xed", "a device tree or FIT image"},
};

// `mayEvaluate`: its table was looked for. Empty: it may be a spec.
std::string meaningOf(const SpecFile& file, bool mayEvaluate) {
    if (file.bytes.empty()) return "an empty file";
    for (const Magic& magic : kMagics) {
        if (file.bytes.compare(std::min(magic.place, file.bytes.size()), magic.bytes.size(), magic.bytes) ==
            0)
            return magic.meaning;
    }
    if (std::string kind = keyKindInWords(file.bytes); !kind.empty()) return kind;
    if (file.bytes.size() > kMostBytes) return "a file that is too large for one";
    if (!mayEvaluate) return "";
    const std::string& fault = file.evaluation.message();
    if (readsVariables(fault)) return "a manifest, which reads what \"build --set\" gives";
    if (isBeyondLimits(file.evaluation)) return "text that is not evaluated: " + fault;
    return fault.empty() ? "text that is no table" : "text that is no table: " + fault;
}

Fault readStart(const std::string& path, std::string* bytes) {
    File file;
    uint64_t size = 0;
    if (Fault fault = openRegularFile(path, &file, &size)) return fault;
    std::string start(kMostBytes + 1, '\0');
    start.resize(fread(start.data(), 1, start.size(), file.get()));
    if (ferror(file.get()) != 0) return fileFault(path, errno);
    bytes->swap(start);
    return {};
}

Fault findSigner(const std::vector<std::string>& publicKeys, Inspection* inspection) {
    const SpecFile& file = inspection->file;
    if (!file.hasMarker) return {};
    if (file.awaitsSignature()) {
        inspection->signature = Inspection::eMissing;
        return {};
    }
    inspection->signature = publicKeys.empty() ? Inspection::eNotVerified : Inspection::eOtherKey;
    for (const std::string& key : publicKeys) {
        PublicKey publicKey;
        if (Fault fault = readPublicKey(key, &publicKey)) return fault.of("--pub");
        if (verifySpecSignature(key.c_str(), file.text.data(), file.text.size(), file.signature.data(),
                                file.signature.size()) != 0)
            continue;
        inspection->signature = Inspection::eVerified;
        inspection->key = key;
        inspection->fingerprint = fingerprintOf(publicKey.key);
    }
    return {};
}

}  // namespace

Fault inspectFile(const std::string& path, const std::vector<std::string>& publicKeys,
                  Inspection* inspection) {
    SpecFile& file = inspection->file;
    file.path = path;
    if (Fault fault = readStart(path, &file.bytes)) return fault;
    if (file.bytes.size() <= kMostBytes) {
        if (Fault fault = loadSpecFile(path, &file)) return fault;
    }
    if (Fault fault = findSigner(publicKeys, inspection)) return fault;
    const bool mayEvaluate = publicKeys.empty() || inspection->signature == Inspection::eVerified;
    if (mayEvaluate && file.bytes.size() <= kMostBytes) evaluateTable(&file);
    if (file.evaluation.code() == EINTR) return file.evaluation;
    if (file.hasTable) {
        inspection->kind = viewOf(file).isManifest() ? Inspection::eManifest : Inspection::eSpec;
        return {};
    }
    inspection->foreign = meaningOf(file, mayEvaluate);
    inspection->kind = inspection->foreign.empty() ? Inspection::eUnverified : Inspection::eForeign;
    if (inspection->kind == Inspection::eForeign) inspection->signature = Inspection::eUnsigned;
    return {};
}

bool isSuspect(const Inspection& inspection) {
    return inspection.kind != Inspection::eSpec || inspection.signature == Inspection::eMissing ||
           inspection.signature == Inspection::eOtherKey;
}

std::string dependenciesInWords(const ImageView& image) {
    const LuaValue* list = findField(image.table, "dep");
    std::string words;
    if (list == nullptr) return words;
    for (const LuaValue& entry : list->items) {
        if (entry.items.size() != 3) continue;  // the device skips it too
        std::string kind = textOfValue(entry.items[0]);
        const bool negated = !kind.empty() && kind.front() == '!';
        if (negated) kind.erase(0, 1);
        words += std::string(words.empty() ? "" : ", ") + (negated ? "not " : "") + kind + " " +
                 textOfValue(entry.items[1]) + " to " + textOfValue(entry.items[2]);
    }
    return words;
}
