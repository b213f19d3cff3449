// Files of a test's own.

#pragma once

#include <string>

/// A directory below the build directory, removed with all that is in it at the end of the scope.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string path;
};

/// All bytes of the file; a file that is not there reads as empty.
std::string readWholeFile(const std::string& path);

/// Replaces the file, and makes the directories above it. Throws if that fails.
void writeWholeFile(const std::string& path, const std::string& bytes);
