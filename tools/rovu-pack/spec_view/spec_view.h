// A spec as the tools see it: its file's bytes, read once, and the table in its text, sorted into scripts and images for the
// rules that judge it.
//
// It holds what is written, not the device's record: it exists for a spec that no device accepts, and still knows
// which versions were written as numbers.

#pragma once

#include "host/fault.h"
#include "install/install.h"
#include "run/settings.h"
#include "spec_view/finding.h"
#include "spec_view/lua_value.h"
#include "spec_view/table_lines.h"
#include "ubi_tools/ubi_volume.h"

#include <optional>
#include <string>
#include <vector>

/// The device's own files in its work directory, apart from the images' tars, which are "img0" and so on.
constexpr const char* kDeviceFiles[] = {kSpecName, kScriptTar, "progress.tmp", kStagingName};

/// Of the spec itself, and of an image.
inline const std::vector<std::string> kSpecKeys = {
    "version", "hardware", "clone_overlay", "encr_key_offset", "script_url", "script_hash", "script_dlsize"};
inline const std::vector<std::string> kImageKeys = {"type",    "update",   "imsize",  "dlsize",
                                                    "url",     "hash",     "image",   "image_md5",
                                                    "preinst", "postinst", "version", "dep"};

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

struct ScriptView {
    size_t entry;  // from 1, as Lua counts
    std::string name;

    bool endsRun() const { return name == kExitSuccess; }
    std::string key() const { return std::to_string(entry); }
};

struct ImageView {
    size_t entry;
    const LuaValue& table;
    std::string localName;  // of its tar, in the device's work directory

    std::string key(const std::string& field) const { return std::to_string(entry) + "." + field; }
    std::string text(const std::string& field) const;
    bool hasText(const std::string& field) const;
    std::optional<double> number(const std::string& field) const;
    bool isMandatory() const { return text("update") == "mandatory"; }
};

struct SpecView {
    const SpecFile& file;
    std::vector<ScriptView> scripts;
    std::vector<ImageView> images;

    std::string text(const std::string& field) const;
    bool hasText(const std::string& field) const;
    std::optional<double> number(const std::string& field) const;
    bool hasRealScript() const;     // one that must come from the script tar
    bool fetchesScriptTar() const;  // there are scripts and a URL
    bool hidesParts() const;        // an image or the end of the run follows a gap, where nothing reads it
    bool isManifest() const;        // nothing in it that `build` computes, though a spec needs it
    double keyOffset() const;       // negative: nothing is encrypted
    FindingPlace at(const std::string& key) const { return file.at(key); }
};

/// The file must outlive the view.
SpecView viewOf(const SpecFile& file);

/// Whether the device takes the value, if it is there, for a string. It refuses a spec in which one is
/// required and is none.
bool isText(const LuaValue* value);

/// The text of a string or a number, as the device takes it; empty for anything else.
std::string textOfValue(const LuaValue& value);
