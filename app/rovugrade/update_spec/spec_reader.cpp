#include "update_spec/spec_reader.h"

#include "lua_util/field_readers.h"
#include "lua_util/sandbox.h"
#include "run/log_module.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using Dep = UpdateSpecVer1::Dep;
using Image = UpdateSpecVer1::Image;
using Part = UpdateSpecVer1::Part;

constexpr int kTableIndex = 1;  // the spec's table on the Lua stack
constexpr size_t kStringSize = 32;

// Sizes and limits are 32 bits of the number as it was read; a negative one is a large one.
uint32_t getSizeField(lua_State* L, int index, const char* name) {
    return static_cast<uint32_t>(getIntField(L, index, name, REQUIRED_FIELD));
}

// The image is not linked anywhere yet, so nothing else would release its list.
[[noreturn]] void raiseDepError(lua_State* L, Image* image, const char* message) {
    free(image->deps);
    image->deps = nullptr;
    image->depCount = 0;
    luaL_error(L, "%s", message);
    abort();  // never reached: Lua's declaration does not say that its error does not return
}

// Lua's own conversion of a number allocates: it would raise if memory ran out, and the list would be lost. The
// format is the one that it converts with.
void formatNumber(lua_State* L, char (&string)[kStringSize]) {
    snprintf(string, sizeof string, LUA_NUMBER_FMT, lua_tonumber(L, -1));
}

void readTripleString(lua_State* L, Image* image, int entry, int position, char (&string)[kStringSize]) {
    lua_rawgeti(L, entry, position);
    if (lua_type(L, -1) == LUA_TNUMBER) {
        formatNumber(L, string);
    } else {
        size_t length = 0;
        const char* value = lua_tolstring(L, -1, &length);
        if (value == nullptr || length >= sizeof string) raiseDepError(L, image, "Bad string in dependency");
        memcpy(string, value, length + 1);
    }
    lua_pop(L, 1);
}

// Reads the triple on top of the Lua stack.
void readDep(lua_State* L, Image* image, Dep* dep) {
    const int entry = lua_gettop(L);
    char kind[kStringSize];
    char min[kStringSize];
    char max[kStringSize];
    readTripleString(L, image, entry, 1, kind);
    readTripleString(L, image, entry, 2, min);
    readTripleString(L, image, entry, 3, max);

    dep->negated = kind[0] == '!';
    const char* name = dep->negated ? kind + 1 : kind;
    if (strcmp(name, "kernel") == 0) {
        dep->kind = UpdateSpecVer1::eTypeKernel;
    } else if (strcmp(name, "rootfs") == 0) {
        dep->kind = UpdateSpecVer1::eTypeRootfs;
    } else {
        raiseDepError(L, image, "Bad dependency type");
    }
    if (parseVersion(&dep->min, min) != 0 || parseVersion(&dep->max, max) != 0 || dep->max < dep->min) {
        raiseDepError(L, image, "Bad version spec in dependency");
    }
}

// Returns 0, or ENOMEM.
int readDeps(lua_State* L, Image* image) {
    image->depCount = 0;
    image->deps = nullptr;
    const int top = lua_gettop(L);
    lua_getfield(L, top, "dep");
    if (!lua_isnil(L, -1)) {
        if (!lua_istable(L, -1)) return luaL_error(L, "Bad type for \"tdep\t");
        const size_t count = lua_objlen(L, -1);
        if (count != 0) {
            // calloc: the count is the author's, and its product with the size must not wrap.
            image->deps = static_cast<Dep*>(calloc(count, sizeof(Dep)));
            if (image->deps == nullptr) return ENOMEM;
        }
        for (size_t i = 1; i <= count; ++i) {
            lua_rawgeti(L, top + 1, static_cast<int>(i));
            if (lua_istable(L, -1)) {
                readDep(L, image, &image->deps[image->depCount]);
                ++image->depCount;
            }
            lua_pop(L, 1);
        }
    }
    lua_settop(L, top);
    return 0;
}

void readScript(lua_State* L, Part* part) {
    size_t length = 0;
    const char* name = lua_tolstring(L, -1, &length);
    if (name == nullptr || length >= sizeof part->name) {
        luaL_error(L, "Failed to read script name");
        return;
    }
    part->type = UpdateSpecVer1::eTypeScript;
    memcpy(part->name, name, length + 1);
}

int readEnum(lua_State* L, int entry, const char* name, const char* list) {
    lua_getfield(L, entry, name);
    return getEnumValue(L, -1, list, ',', name, REQUIRED_FIELD);
}

// Returns 0, or ENOMEM.
int readImage(lua_State* L, Part* part, unsigned int number) {
    const int entry = lua_gettop(L);
    Image& image = part->img;
    part->type = static_cast<UpdateSpecVer1::PartType>(readEnum(L, entry, "type", "kernel,rootfs") + 1);
    image.update = static_cast<UpdateSpecVer1::Update>(readEnum(L, entry, "update", "optional,mandatory"));
    lua_settop(L, entry);

    image.imsize = getSizeField(L, entry, "imsize");
    image.dlsize = getSizeField(L, entry, "dlsize");
    getStringField(L, entry, "url", image.url, sizeof image.url, false);
    getStringField(L, entry, "hash", image.hash, sizeof image.hash, false);
    getStringField(L, entry, "image", image.image, sizeof image.image, false);
    getStringField(L, entry, "image_md5", image.image_md5, sizeof image.image_md5, false);
    getStringField(L, entry, "preinst", image.preinst, sizeof image.preinst, true);
    getStringField(L, entry, "postinst", image.postinst, sizeof image.postinst, true);
    char version[kStringSize];
    getStringField(L, entry, "version", version, sizeof version, false);
    if (parseVersion(&image.version, version) != 0) luaL_error(L, "Bad version string: %s", version);

    if (int rc = readDeps(L, &image); rc != 0) return rc;
    snprintf(image.localName, sizeof image.localName, "img%u", number);
    return 0;
}

// Returns 0, or ENOMEM.
int readParts(lua_State* L, UpdateSpecVer1* spec, unsigned int* scriptCount) {
    unsigned int imageCount = 0;
    for (int i = 1;; ++i) {
        lua_settop(L, kTableIndex);
        lua_rawgeti(L, kTableIndex, i);
        if (lua_isnil(L, -1)) break;

        Part part;
        memset(&part, 0, sizeof part);
        if (lua_isstring(L, -1) != 0) {
            readScript(L, &part);
            ++*scriptCount;
        } else if (lua_istable(L, -1)) {
            if (int rc = readImage(L, &part, imageCount); rc != 0) return rc;
            ++imageCount;
        } else {
            return luaL_error(L, "Unexpected part data type at index %d", i);
        }
        if (!appendPart(spec, part)) {
            if (!isScript(part)) free(part.img.deps);
            return ENOMEM;
        }
    }
    lua_settop(L, kTableIndex);
    return 0;
}

void readScriptTar(lua_State* L, UpdateSpecVer1* spec) {
    getStringField(L, kTableIndex, "script_url", spec->script_url, sizeof spec->script_url, false);
    getStringField(L, kTableIndex, "script_hash", spec->script_hash, sizeof spec->script_hash, false);
    spec->script_dlsize = getSizeField(L, kTableIndex, "script_dlsize");
}

}  // namespace

UpdateSpecVer1* readSpec(lua_State* L) {
    ParseSpecResult result = {0, nullptr};
    int code = 0;
    if (lua_cpcall(L, parseSpec, &result) != 0) {
        LOG_MSG(LOG_LVL_ERROR, "LUA parsing failed: %s", lua_tolstring(L, -1, nullptr));
        lua_settop(L, -2);
        code = EBADRQC;
    } else {
        code = result.error;
    }
    if (code != 0) {
        freeSpec(result.spec);
        result.spec = nullptr;
    }
    lua_close(L);
    if (result.spec == nullptr) {
        LOG_MSG(LOG_LVL_ERROR, "Parsing of FW update spec file failed: %d", code);
    }
    return result.spec;
}

int parseSpec(lua_State* L) {
    ParseSpecResult* result = static_cast<ParseSpecResult*>(lua_touserdata(L, 1));
    result->error = 0;
    result->spec = nullptr;
    lua_settop(L, 0);
    lua_getfield(L, LUA_REGISTRYINDEX, kChunkValueKey);

    const int32_t version = getIntField(L, kTableIndex, "version", REQUIRED_FIELD);
    if (version != 1) return luaL_error(L, "FW update spec version %d not supported", version);

    // Zeroed: the fields of the script tar stay empty in a spec without scripts.
    UpdateSpecVer1* spec = static_cast<UpdateSpecVer1*>(calloc(1, sizeof(UpdateSpecVer1)));
    if (spec == nullptr) {
        result->error = ENOMEM;
        return 0;
    }
    initParts(spec);
    result->spec = spec;  // at once: an error from here on finds it

    getStringField(L, kTableIndex, "hardware", spec->hardware, sizeof spec->hardware, false);
    spec->clone_overlay = getIntField(L, kTableIndex, "clone_overlay", 0) != 0;
    spec->encr_key_offset = getIntField(L, kTableIndex, "encr_key_offset", -1);
    unsigned int scriptCount = 0;
    if (int rc = readParts(L, spec, &scriptCount); rc != 0) {
        result->error = rc;
        return 0;
    }
    if (scriptCount != 0) readScriptTar(L, spec);
    return 0;
}
