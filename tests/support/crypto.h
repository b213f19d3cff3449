// What an update's author computes: digests, ciphertext and signatures.

#pragma once

#include <string>

/// 32 bytes of key and 16 of IV, as in a device's key file.
std::string sampleFileKey();

/// AES-256-CBC under such a key, with padding.
std::string encrypted(std::string bytes, std::string fileKey);

std::string sha256Hex(const std::string& bytes);
std::string md5Hex(const std::string& bytes);

/// The spec with its signature appended. The key is made once in a process.
std::string signedText(std::string text);

/// The public half of that key, in PEM format.
std::string publicKeyText();
