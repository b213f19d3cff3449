// A spec's file in memory: read, separated from its signature and verified, evaluated.
//
// The file is read once into one block, and is verified, wrapped and evaluated there: nothing of it is copied.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <lua.hpp>
#include <string>

/// Most bytes of a spec's file: text, hyphens and signature together.
constexpr uint32_t kMaxSpecSize = 8192;

/// The spec's file. The first `textLength` bytes are the Lua text; after the file is room for the sandbox's
/// wrap.
struct SpecBuffer {
    char* bytes = nullptr;
    size_t capacity = 0;
    size_t fileSize = 0;
    size_t textLength = 0;

    SpecBuffer() = default;
    ~SpecBuffer() { free(bytes); }
    SpecBuffer(const SpecBuffer&) = delete;
    SpecBuffer& operator=(const SpecBuffer&) = delete;
};

/// Reads the `size` bytes of the file at `specPath`.
/// \return false after logging, or if memory ran out.
[[nodiscard]] bool readSpecFile(const std::string& specPath, uint32_t size, SpecBuffer* spec);

/// Separates the text from its signature, and verifies the signature.
/// \param keyFile path of the public key; null: nothing is verified.
/// \param specPath for messages.
/// \return false after logging.
[[nodiscard]] bool authenticateSpec(const char* keyFile, const std::string& specPath, SpecBuffer* spec);

/// Evaluates the text, in place.
/// \return the Lua state with its value, for readSpec(); null after logging.
[[nodiscard]] lua_State* evaluateSpec(SpecBuffer* spec);
