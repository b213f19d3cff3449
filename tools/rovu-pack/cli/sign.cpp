// The subcommand "sign".

#include "commands.h"
#include "device_verdict.h"
#include "digests.h"
#include "files.h"
#include "key_files.h"
#include "limited_work.h"
#include "signing.h"
#include "spec_view.h"

#include <cstdio>

namespace {

// Replaces the signature of a spec's bytes.
Fault signBytes(const std::string& old, const SigningKey& key, std::string* spec) {
    std::string text;
    if (Fault fault = unsignedTextOf(old, &text)) return fault;
    if (Fault fault = signText(text, key, spec)) return fault;
    return tryOnDevice(*spec, publicPemOf(key));
}

Fault signFile(const SignOptions& options) {
    std::string path;
    mode_t mode = 0;
    std::string old;
    SigningKey key;
    std::string spec;
    if (Fault fault = resolveFile(options.spec, &path, &mode)) return fault;
    if (Fault fault = readWholeFile(path, &old)) return fault;
    if (Fault fault = readSigningKey(options.key, options.keyPass, &key)) return fault;
    if (Fault fault = signBytes(old, key, &spec)) {
        SpecFile file = specFileOf(options.spec, old);
        if (!isBeyondLimits(fault)) evaluateTable(&file);
        if (!viewOf(file).isManifest()) return fault.of(options.spec);
        return {fault.code(),
                options.spec +
                    " seems to be a manifest, of which \"rovu-pack build\" makes a spec: " + fault.message()};
    }
    return replaceFile(path, spec, mode);
}

// Nothing is given away to be signed that a device would refuse.
Fault printDigest(const std::string& path) {
    std::string old;
    std::string text;
    if (Fault fault = readWholeFile(path, &old)) return fault;
    Fault fault = unsignedTextOf(old, &text);
    if (!fault) fault = tryTextOnDevice(text);
    if (fault) return fault.of(path);
    printf("%s\n", hexSha256(text).c_str());
    return {};
}

}  // namespace

int runSign(const SignOptions& options) {
    warnOfOpenKey(" sign", options.key);
    if (Fault fault = options.isDigest ? printDigest(options.spec) : signFile(options))
        return reportFault(" sign", fault);
    return kExitClean;
}
