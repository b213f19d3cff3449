// What a spec says of a file, against the file.

#pragma once

#include "spec_view.h"

#include <cstdint>
#include <string>

/// Adds findings to `*findings`. The place is always one of the spec; which file it is about stands in the sentence.
struct Comparison {
    struct File {
        std::string name;  // what the sentence calls it
        uint64_t size;     // bytes
    };

    const SpecView& spec;
    Findings* findings;

    /// \param given bytes that the spec allows; not above 0: no limit.
    void size(FindingCode code, const std::string& key, const File& file, const std::string& noun,
              double given) const {
        if (given <= 0 || given >= static_cast<double>(file.size)) return;
        findings->add(code, spec.at(key),
                      file.name + " has " + std::to_string(file.size) + " bytes, for which the " + noun +
                          " of " + std::to_string(static_cast<uint64_t>(given)) + " is too small.");
    }

    /// \param given the spec's; empty: it has none.
    void digest(const std::string& key, const std::string& name, const std::string& actual,
                const std::string& given) const {
        if (given.empty() || given == actual) return;
        findings->add(eDigestMismatch, spec.at(key),
                      name + " has the digest " + actual + ", and the spec has " + given + ".");
    }
};
