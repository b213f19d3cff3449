// A disk of the target VM and a log of writes to it, made to order: two boot sets of one LEB for each volume.

#pragma once

#include "image_bytes.h"
#include "recording/write_log.h"
#include "verdict/expected_set.h"

#include <string>
#include <vector>

/// Set 1 of version 2.0 and set 0 of version 3.0, whose images are short strings.
ExpectedSets syntheticSets();

/// The flash with the volumes of both sets, each complete.
std::string syntheticFlash(const ExpectedSets& sets);

/// The contents of a reference file with the volumes of these sets.
std::string refFileContents(const std::vector<ExpectedSet>& sets);

/// An ext4 file system with the key file `key`, and files by their names and contents. Made by mke2fs.
struct NamedFile {
    std::string name;
    std::string contents;
};
std::string syntheticApp0(const std::vector<NamedFile>& files);

constexpr char kSyntheticKey[] = "key";

/// A disk with these partitions.
std::string syntheticDisk(const std::string& flash, const std::string& environment, const std::string& app0);

/// An entry that writes `data`, which must outlive it, at `offset`; or a flush.
LogEntry writeAt(size_t offset, const std::string& data);
LogEntry flush();

/// The bytes of a log with these entries.
std::string logBytes(const std::vector<LogEntry>& entries);
