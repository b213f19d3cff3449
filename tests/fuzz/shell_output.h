// What commands print, without a shell: the linker leads popen() and pclose() of the code under test here.

#pragma once

#include <cstddef>
#include <cstdint>

/// Until the end of its scope every command prints the `size` bytes at `bytes`, which must stay valid, and
/// exits with 0. There is at most one of them at a time.
class ShellOutput {
public:
    ShellOutput(const uint8_t* bytes, size_t size);
    ~ShellOutput();
    ShellOutput(const ShellOutput&) = delete;
    ShellOutput& operator=(const ShellOutput&) = delete;
};
