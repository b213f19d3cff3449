// A spec's file as the tools see it: its bytes, read once, and the table in its text.

#pragma once

#include "fault.h"
#include "finding.h"
#include "lua_value.h"
#include "table_lines.h"

#include <string>

struct SpecFile {
    std::string path;
    std::string bytes;
    bool hasMarker = false;
    std::string text;       // what the device evaluates
    std::string signature;  // what follows the marker
    TableLines lines;
    std::string repeatedKey;  // path of a key that is there twice; empty: none
    Fault evaluation;         // why there is no table; evaluateTable() fills in the rest
    bool hasTable = false;
    LuaValue table;

    /// Whether the marker is the end: the spec was made to be signed elsewhere, and is not signed yet.
    bool awaitsSignature() const;
    /// Where the key at `key` stands; if its line is not known, that of the nearest table around it.
    FindingPlace at(const std::string& key) const;
    /// Where the byte at `position` of the file stands.
    FindingPlace atByte(size_t position) const;
};

/// Reads the file. Nothing of it is evaluated.
Fault loadSpecFile(const std::string& path, SpecFile* spec);

/// The same for bytes that are not in a file; `path` is what findings name.
SpecFile specFileOf(const std::string& path, std::string bytes);

/// Evaluates the text, within limits, to the table of the spec.
void evaluateTable(SpecFile* spec);
