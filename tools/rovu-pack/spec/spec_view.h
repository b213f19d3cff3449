// A spec's table, sorted into scripts and images, for the rules that judge it.
//
// It is what stands in the text and not the device's record: it exists for a spec that no device reads, and
// still knows which versions were written as numbers.

#pragma once

#include "install.h"
#include "spec_file.h"
#include "spec_words.h"

#include <optional>
#include <string>
#include <vector>

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
