// The kinds of files with keys, by their contents: for messages about one that was given in place of another.

#pragma once

#include <string>

enum class KeyUse { ePrivate, ePublic };

/// \return what the file with these bytes is, with an article; empty if it is no key file.
std::string keyKindInWords(const std::string& bytes);

/// Whether a file with these bytes is a private key.
bool isPrivateKey(const std::string& bytes);

/// What a file without the key that is needed is instead, and what to do about it, as far as possible with a command.
/// \param path of the file, for the command.
/// \return empty if it is no key file, or seems to be one of the right kind.
std::string adviceOnKeyFile(const std::string& bytes, const std::string& path, KeyUse use);
