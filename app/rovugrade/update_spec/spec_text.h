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

/// The spec's file. The first `textLength` bytes are the Lua text: all of it, until its signature was separated. After the
/// file is room for the sandbox's wrap.
struct SpecBuffer {
    static constexpr size_t kMargin = 16;

    const size_t fileSize;
    const size_t capacity;
    char* const bytes;  // zeros at first; null if memory ran out
    size_t textLength;

    explicit SpecBuffer(size_t size)
        : fileSize(size), capacity(size + kMargin), bytes(static_cast<char*>(calloc(1, capacity))),
          textLength(size) {}
    ~SpecBuffer() { free(bytes); }
    SpecBuffer(const SpecBuffer&) = delete;
    SpecBuffer& operator=(const SpecBuffer&) = delete;
};

/// Reads the file at `specPath`, which has the buffer's `fileSize`.
/// \return false after logging, or if memory ran out.
[[nodiscard]] bool readSpecFile(const std::string& specPath, SpecBuffer* spec);

/// Separates the text from its signature, and verifies the signature.
/// \param keyFile path of the public key; null: nothing is verified.
/// \param specPath for messages.
/// \return false after logging.
[[nodiscard]] bool authenticateSpec(const char* keyFile, const std::string& specPath, SpecBuffer* spec);

/// Evaluates the text, in place.
/// \return the Lua state with its value, for readSpec(); null after logging.
[[nodiscard]] lua_State* evaluateSpec(SpecBuffer* spec);
