// The spec is read once into one block, and its text is verified, wrapped and evaluated there: nothing of it
// is copied, and nothing is evaluated that was not verified first.

#include "load_spec.h"

#include "downloader/downloader.h"
#include "fetch_file.h"
#include "log_module.h"
#include "lua_util/sandbox.h"
#include "progress.h"
#include "settings.h"
#include "spec_signature.h"
#include "util/file.h"
#include "util/path.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kMaxSpecSize = 8192;  // bytes: text, hyphens and signature together
constexpr size_t kSpecMargin = 16;       // room for the sandbox's wrap

// The spec's file in memory. `textLength` bytes at its start are the text.
struct SpecBuffer {
    char* bytes = nullptr;
    size_t capacity = 0;
    size_t textLength = 0;

    SpecBuffer() = default;
    ~SpecBuffer() { free(bytes); }
    SpecBuffer(const SpecBuffer&) = delete;
    SpecBuffer& operator=(const SpecBuffer&) = delete;
};

bool readSpecFile(const std::string& specPath, uint32_t size, SpecBuffer* spec) {
    spec->capacity = size + kSpecMargin;
    spec->bytes = static_cast<char*>(malloc(spec->capacity));
    if (spec->bytes == nullptr) return false;
    if (int rc = readFile(specPath.c_str(), spec->bytes, size, nullptr); rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to read from file \"%s\": %d", specPath.c_str(), rc);
        return false;
    }
    return true;
}

// Separates the text from its signature, and verifies the signature if there is a key.
bool authenticate(const std::string& specPath, uint32_t size, SpecBuffer* spec) {
    const char* marker = findSignatureMarker(spec->bytes, size);
    if (marker == nullptr) {
        if (keyPath != nullptr) {
            LOG_MSG(LOG_LVL_ERROR, "Signature not found in %s", specPath.c_str());
            return false;
        }
        spec->textLength = size;
        return true;
    }

    spec->textLength = static_cast<size_t>(marker - spec->bytes);
    if (keyPath == nullptr) {
        LOG_MSG(LOG_LVL_ERROR, "Signature present but verification NOT requested");
        return true;
    }
    const char* signatureText = marker + 2;
    const size_t signatureTextLength = size - spec->textLength - 2;
    if (int rc =
            verifySpecSignature(keyPath, spec->bytes, spec->textLength, signatureText, signatureTextLength);
        rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Signature verification of %s failed: %d", specPath.c_str(), rc);
        return false;
    }
    return true;
}

bool evaluateIn(lua_State* L, SpecBuffer* spec) {
    if (lua_cpcall(L, luaopen_base, nullptr) != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to initialize LUA");
        return false;
    }
    const int rc = loadDataChunk(L, spec->bytes, spec->textLength, spec->capacity);
    if (rc == EBADRQC) {
        LOG_MSG(LOG_LVL_ERROR, "Parsing of upgrade configuration file failed: %s",
                lua_tolstring(L, -1, nullptr));
        lua_settop(L, -2);
    } else if (rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Parsing of upgrade configuration file failed: %d", rc);
    }
    return rc == 0;
}

lua_State* evaluate(SpecBuffer* spec) {
    lua_State* L = luaL_newstate();
    if (L == nullptr) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to initialize LUA");
        return nullptr;
    }
    if (evaluateIn(L, spec)) return L;
    lua_close(L);
    return nullptr;
}

}  // namespace

lua_State* loadSpec(const std::string& workDir) {
    std::string specPath = workDir;
    appendPath(specPath, "rovu.lua");
    // Never dry: without its spec a dry run would have nothing to say.
    Downloader downloader(isVerboseTransfer(), false);
    downloader.setup(upgradeUrl, specPath, kMaxSpecSize, "");
    setState(eStateDownloadingSpec, &downloader);
    if (downloader.run(kDownloadRetries, kDownloadWait) != 0) return nullptr;

    if (keyPath != nullptr && strcmp(keyPath, kNoKey) == 0) keyPath = nullptr;
    SpecBuffer spec;
    if (!readSpecFile(specPath, downloader.received, &spec)) return nullptr;
    if (!authenticate(specPath, downloader.received, &spec)) return nullptr;
    return evaluate(&spec);
}
