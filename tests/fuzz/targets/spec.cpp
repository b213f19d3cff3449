// A spec from its text to the record and the images that remain on a device.
//
// What follows the signature's marker is not a signature here but a decimal number N: the N-th allocation, of
// Lua or of the reader, fails. Whatever it is, nothing may leak.

#include "fuzz_target.h"
#include "lua_util/sandbox.h"
#include "spec_input.h"
#include "update_spec/device_check.h"
#include "update_spec/image_selection.h"
#include "update_spec/spec_reader.h"
#include "update_spec/spec_signature.h"
#include "update_spec/spec_text.h"

#include <cstring>

namespace {

struct Memory {
    bool limited = false;   // whether the code under test runs
    unsigned int left = 0;  // allocations up to the one that fails; 0: none does
    bool refuses(size_t size) { return limited && (size > kLargestBlock || (left != 0 && --left == 0)); }
};
Memory memory;

void* allocateForLua(void*, void* block, size_t, size_t size) {
    if (size == 0) {
        free(block);
        return nullptr;
    }
    return memory.refuses(size) ? nullptr : realloc(block, size);
}

unsigned int numberAfterMarker(const std::string& file) {
    const char* marker = findSignatureMarker(file.data(), file.size());
    return marker == nullptr ? 0 : static_cast<unsigned int>(strtoul(marker + 2, nullptr, 10));
}

// The value on top of the Lua stack.
void requireData(lua_State* L) {
    switch (lua_type(L, -1)) {
    case LUA_TNIL:
    case LUA_TBOOLEAN:
    case LUA_TNUMBER:
    case LUA_TSTRING:
        return;
    case LUA_TTABLE:
        break;
    default:
        require(false, "the value is pure data");
    }
    require(lua_checkstack(L, 3) != 0, "the value is no deeper than Lua's stack");
    for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
        requireData(L);
        lua_pushvalue(L, -2);
        requireData(L);
        lua_pop(L, 1);
    }
}

template <size_t size>
bool isTerminated(const char (&string)[size]) {
    return memchr(string, '\0', size) != nullptr;
}

void checkDepsOf(const UpdateSpecVer1::Image& image) {
    require((image.depCount == 0) || image.deps != nullptr, "dependencies that are counted are there");
    for (uint32_t i = 0; i < image.depCount; ++i) {
        const UpdateSpecVer1::Dep& dep = image.deps[i];
        require(dep.kind == UpdateSpecVer1::eTypeKernel || dep.kind == UpdateSpecVer1::eTypeRootfs,
                "a dependency is of one of two kinds");
        require(dep.min <= dep.max, "a range is not reversed");
    }
}

void checkImage(const UpdateSpecVer1::Part& part) {
    const UpdateSpecVer1::Image& image = part.img;
    require(part.type == UpdateSpecVer1::eTypeKernel || part.type == UpdateSpecVer1::eTypeRootfs,
            "an image is of one of two kinds");
    require(image.update <= UpdateSpecVer1::eUpdateMandatory, "an image is optional or mandatory");
    require(isTerminated(image.url) && isTerminated(image.hash) && isTerminated(image.localName) &&
                isTerminated(image.image) && isTerminated(image.image_md5) && isTerminated(image.preinst) &&
                isTerminated(image.postinst),
            "the strings of an image are terminated");
    checkDepsOf(image);
}

// \return the number of scripts.
size_t checkParts(UpdateSpecVer1* spec) {
    size_t scripts = 0;
    for (const ListNode* node = &spec->parts;;) {
        require(node->next->prev == node, "the list is linked in both directions");
        node = node->next;
        if (node == &spec->parts) break;
    }
    for (UpdateSpecVer1::Part* part = firstPart(spec); part != nullptr; part = nextPart(spec, part)) {
        if (!isScript(*part)) {
            checkImage(*part);
            continue;
        }
        ++scripts;
        require(isTerminated(part->name), "the name of a script is terminated");
    }
    return scripts;
}

void checkSpec(UpdateSpecVer1* spec) {
    require(isTerminated(spec->hardware) && isTerminated(spec->script_url) && isTerminated(spec->script_hash),
            "the strings of a spec are terminated");
    const size_t scripts = checkParts(spec);
    if (scripts == 0)
        require(spec->script_url[0] == '\0' && spec->script_hash[0] == '\0' && spec->script_dlsize == 0,
                "without a script there is no script tar");
    static_cast<void>(isModelSupported(*spec, "RV-20"));
    static_cast<void>(selectImages(spec, {0x0003000A00310002, 0x0002000400010000}));
    require(checkParts(spec) == scripts, "the choice of images keeps every script");
}

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);

void* __wrap_malloc(size_t size) {
    return memory.refuses(size) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return memory.refuses(count * size) ? nullptr : __real_calloc(count, size);
}

lua_State* __wrap_luaL_newstate() {
    return lua_newstate(allocateForLua, nullptr);
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string file(charsOf(data), size);
    if (size > kMaxSpecSize || mayHoldFunction(file)) return 0;
    SpecBuffer buffer(size);
    if (size != 0) memcpy(buffer.bytes, data, size);
    require(authenticateSpec(nullptr, "spec", &buffer), "a spec that is not verified is good");

    memory = {true, numberAfterMarker(file)};
    lua_State* L = evaluateSpec(&buffer);
    memory.limited = false;
    if (L == nullptr) return 0;
    require(lua_gettop(L) == 0, "the evaluation leaves the Lua stack empty");
    lua_getfield(L, LUA_REGISTRYINDEX, kChunkValueKey);
    requireData(L);
    lua_settop(L, 0);
    memory.limited = true;
    UpdateSpecVer1* spec = readSpec(L);
    memory.limited = false;
    if (spec == nullptr) return 0;
    checkSpec(spec);
    freeSpec(spec);
    return 0;
}
