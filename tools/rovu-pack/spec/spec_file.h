// A spec's file as `check` sees it: the bytes, what the device makes of them, and the table in the text.

#pragma once

#include "finding.h"
#include "lua_value.h"
#include "progress.h"
#include "spec.h"
#include "table_lines.h"

#include <memory>
#include <string>

/// What is known of the key that the device holds.
struct SignatureUse {
    std::string publicKey;    // path; empty: not given
    bool isUnsigned = false;  // the device is told not to verify
};

struct SpecFile {
    std::string path;
    std::string bytes;
    SignatureUse signatureUse;
    bool hasMarker = false;
    std::string text;       // what the device evaluates
    std::string signature;  // what stands behind the marker
    TableLines lines;
    std::string repeatedKey;  // path of a key that is there twice; empty: none
    bool hasTable = false;
    LuaValue table;
    UpdateState refusedIn = eStateInvalid;  // the state in which every device refuses it; eStateInvalid: none

    /// Where the key at `key` stands; if its line is not known, that of the nearest table around it.
    FindingPlace at(const std::string& key) const;
    /// Where the byte at `position` of the file stands.
    FindingPlace atByte(size_t position) const;
};

using SpecRecord = std::unique_ptr<UpdateSpecVer1, void (*)(UpdateSpecVer1*)>;

/// Reads the file and its table. What the device has against it is no failure, but goes into `findings`.
/// \return 0, or a positive errno value with a sentence in `*error`.
int loadSpecFile(const std::string& path, const SignatureUse& signatureUse, SpecFile* spec,
                 Findings* findings, std::string* error);

/// Lets the device's code read a record of its own from the spec: the choice of images changes it. Says
/// nothing. \return null if the device refuses the spec.
SpecRecord readRecord(const SpecFile& spec);
