// Transfers as work of its own, for a program that runs beside curl and openssl.

#pragma once

#include <string>

/// Downloads as the device program does, without a checksum. Throws std::runtime_error if that fails.
void download(const std::string& url, const std::string& target);

/// Downloads by libcurl's simplest use with the same options. Throws std::runtime_error if that fails.
void downloadWithLibcurl(const std::string& url, const std::string& target);

/// Decrypts the file at `path` as the device program does, with a key and an IV of zeros. Throws std::runtime_error if
/// that fails.
void decryptInPlace(const std::string& path);
