// Which tars an update consists of, and what goes into each. A script is packed once, however often it
// runs; the end of the run never.

#pragma once

#include "archive/tar_archive.h"
#include "builder/manifest.h"

#include <cstdint>
#include <string>
#include <vector>

/// The most bytes of a file that a spec can describe.
constexpr uint64_t kMaxFileSize = INT32_MAX;

/// A tar to be made, and where in the manifest its values belong.
struct TarJob {
    std::string keyPrefix;  // of url, hash and dlsize: "script_", or "2."
    std::string image;      // the member; empty: the script tar
    std::string name;       // of the file, in the folder that is served
    std::vector<TarInput> inputs;
    std::vector<std::string> keys;  // that name the inputs

    bool isOfScripts() const { return keyPrefix == "script_"; }
};

/// The script tar first, if there is one, then the images' in the manifest's order.
std::vector<TarJob> planTars(const Manifest& manifest);

/// Adds up the bytes of all inputs, of which nothing is read yet.
/// \param followsLinks else a file at which a link out of the manifest's folder ends is refused: who reads the manifest does
///        not see that it is another one, such as a private key.
/// \return a fault of the entry whose file is missing, is not a regular file, is refused, or is too large for a tar that a
///         spec can describe.
Fault measureInputs(const Manifest& manifest, const std::vector<TarJob>& jobs, bool followsLinks,
                    uint64_t* bytes);
