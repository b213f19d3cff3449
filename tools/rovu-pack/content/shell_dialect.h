// What a script has that a device's shell, or the device, does not give it.

#pragma once

#include <string>
#include <vector>

/// A construct and the lines of the script that have it, from 1.
struct ScriptConstruct {
    enum Kind { eBash, eHazard };
    Kind kind;
    const char* name;  // with its article: "an array"
    std::vector<size_t> lines;
};

/// Finds constructs of bash that the shell of BusyBox lacks even with all of its options for bash, and hazards: what
/// works on a workstation, or breaks into the update. Comments, strings and here-documents are passed over; what is in
/// doubt is taken for none.
std::vector<ScriptConstruct> findConstructs(const std::string& script);

/// Whether the last command is a test before "&&", whose failure is that of the script: "[ -f x ] && rm x".
bool endsInTest(const std::string& script);
