// What a file is: the update that a spec describes and the key that signed it, or what else
// the file appears to be. Mistakes are left to the checker.

#pragma once

#include "host/fault.h"
#include "spec_view/spec_view.h"

#include <string>
#include <vector>

struct Inspection {
    enum Kind { eSpec, eManifest, eForeign, eUnverified };
    enum Signature { eUnsigned, eMissing, eNotVerified, eVerified, eOtherKey };

    SpecFile file;
    Kind kind = eForeign;  // eUnverified: no key that was given verifies it, so nothing of it was evaluated
    std::string foreign;   // eForeign: what it seems to be instead, with an article
    Signature signature = eUnsigned;
    std::string key;          // eVerified: the file of the public key that verifies the signature
    std::string fingerprint;  // eVerified: of that key
};

/// Reads a file of any kind; of one that is too large for a spec, only the start.
/// \param publicKeys files, of which one may verify the signature.
/// \return a fault if a file cannot be read or a key file holds no public key.
Fault inspectFile(const std::string& path, const std::vector<std::string>& publicKeys,
                  Inspection* inspection);

/// Whether every device would refuse it: no spec, not signed yet, or signed with another key than the ones that were
/// given.
bool isSuspect(const Inspection& inspection);

/// The dependency list of an image in words, such as "kernel 3.10 to 3.11, not kernel 3.10.47 to 3.10.49.9"; empty if
/// it has none.
std::string dependenciesInWords(const ImageView& image);

/// One screen of text, without colours.
std::string inspectionText(const Inspection& inspection);

/// The same as JSON text. Names and their meanings are stable.
std::string inspectionJson(const Inspection& inspection);
