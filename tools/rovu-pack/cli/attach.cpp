// The subcommand "attach".

#include "commands.h"
#include "device_verdict.h"
#include "files.h"
#include "key_files.h"
#include "signature_file.h"

namespace {

// The device's code decides; what is said of the signature before tells more than a device would.
Fault judgeSpec(const AttachOptions& options, const std::string& text, const std::string& raw,
                const std::string& spec) {
    PublicKey key;
    if (Fault fault = readPublicKey(options.publicKey, &key)) return fault;
    if (Fault fault = verifySignature(text, raw, key.key))
        return fault.of(options.signature + ", with " + options.publicKey);
    const Fault fault = tryOnDevice(spec, key.pem);
    return fault ? fault.of(options.spec) : fault;
}

Fault attachSignature(const AttachOptions& options) {
    std::string path;
    mode_t mode = 0;
    std::string old;
    std::string text;
    std::string raw;
    if (Fault fault = resolveFile(options.spec, &path, &mode)) return fault;
    if (Fault fault = readWholeFile(path, &old)) return fault;
    if (Fault fault = readSignature(options.signature, &raw)) return fault;
    if (Fault fault = unsignedTextOf(old, &text)) return fault.of(options.spec);
    const std::string spec = specOf(text, raw);
    if (Fault fault = judgeSpec(options, text, raw, spec)) return fault;
    return replaceFile(path, spec, mode);
}

}  // namespace

int runAttach(const AttachOptions& options) {
    if (Fault fault = attachSignature(options)) return reportFault(" attach", fault);
    return kExitClean;
}
