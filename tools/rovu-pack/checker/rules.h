// Compares what a spec says of a file with the file.
//
// The rules of `check` for what the device does not check itself. Each function is one subject, and returns
// what it found.

#pragma once

#include "spec_view/device_verdict.h"
#include "spec_view/spec_view.h"

#include <cstdint>
#include <string>

/// Adds findings to `*findings`. The place is always one of the spec; the sentence names the file.
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

/// The bytes of the file, before anything is evaluated: size, marker, words.
Findings checkText(const SpecFile& file, const SignatureUse& use);

/// Keys that nothing reads, values that are nil, entries after a gap.
Findings checkKeys(const SpecView& spec);

/// Digests, sizes, versions, models.
Findings checkValues(const SpecView& spec);

/// Schemes and characters of URLs.
Findings checkUrls(const SpecView& spec);

/// Names that reach a shell, tar or the work directory.
Findings checkNames(const SpecView& spec);

/// Dependency lists: what they test, and whether anything can pass.
Findings checkDependencies(const SpecView& spec);

/// The list as a whole: what is flashed, and how the run ends.
Findings checkParts(const SpecView& spec);

/// Volumes of the set that boots which the update, on some device, does not write. Nothing if every device
/// refuses the spec, or stays on its set.
Findings checkBootSet(const SpecView& spec);
