// What bash has and the shell of BusyBox lacks.

#pragma once

#include <string>
#include <vector>

/// A construct and the lines of the script that have it, from 1.
struct BashConstruct {
    const char* name;  // with its article: "an array"
    std::vector<size_t> lines;
};

/// Only constructs that its shell lacks even with all of its options for bash. Comments, strings and here-documents are passed over;
/// what is in doubt is taken for none.
std::vector<BashConstruct> findBashConstructs(const std::string& script);
