#include "update_spec/spec_text.h"

#include "lua_util/sandbox.h"
#include "run/log_module.h"
#include "update_spec/spec_signature.h"
#include "util/file.h"

#include <cerrno>

namespace {

lua_State* openLua() {
    lua_State* L = luaL_newstate();
    if (L != nullptr && lua_cpcall(L, luaopen_base, nullptr) == 0) return L;
    LOG_MSG(LOG_LVL_ERROR, "Failed to initialize LUA");
    if (L != nullptr) lua_close(L);
    return nullptr;
}

bool evaluateIn(lua_State* L, SpecBuffer* spec) {
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

}  // namespace

bool readSpecFile(const std::string& specPath, SpecBuffer* spec) {
    if (spec->bytes == nullptr) return false;
    const auto size = static_cast<uint32_t>(spec->fileSize);
    if (int rc = readFile(specPath.c_str(), spec->bytes, size, nullptr); rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Failed to read from file \"%s\": %d", specPath.c_str(), rc);
        return false;
    }
    return true;
}

bool authenticateSpec(const char* keyFile, const std::string& specPath, SpecBuffer* spec) {
    const char* marker = findSignatureMarker(spec->bytes, spec->fileSize);
    if (marker == nullptr) {
        if (keyFile != nullptr) {
            LOG_MSG(LOG_LVL_ERROR, "Signature not found in %s", specPath.c_str());
            return false;
        }
        spec->textLength = spec->fileSize;
        return true;
    }

    spec->textLength = static_cast<size_t>(marker - spec->bytes);
    if (keyFile == nullptr) {
        LOG_MSG(LOG_LVL_ERROR, "Signature present but verification NOT requested");
        return true;
    }
    const char* signatureText = marker + 2;
    const size_t signatureTextLength = spec->fileSize - spec->textLength - 2;
    if (int rc =
            verifySpecSignature(keyFile, spec->bytes, spec->textLength, signatureText, signatureTextLength);
        rc != 0) {
        LOG_MSG(LOG_LVL_ERROR, "Signature verification of %s failed: %d", specPath.c_str(), rc);
        return false;
    }
    return true;
}

lua_State* evaluateSpec(SpecBuffer* spec) {
    lua_State* L = openLua();
    if (L == nullptr) return nullptr;
    if (evaluateIn(L, spec)) return L;
    lua_close(L);
    return nullptr;
}
