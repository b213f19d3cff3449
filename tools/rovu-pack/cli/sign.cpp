// The subcommand "sign".

#include "commands.h"
#include "device_verdict.h"
#include "files.h"
#include "key_files.h"
#include "signing.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace {

constexpr mode_t kPermissions = 07777;

// Where a link leads: it is the file that is replaced, not the link.
Fault resolve(const std::string& path, std::string* real, mode_t* mode) {
    char resolved[PATH_MAX];
    struct stat status;
    if (realpath(path.c_str(), resolved) == nullptr || stat(resolved, &status) != 0)
        return fileFault(path, errno);
    *real = resolved;
    *mode = status.st_mode & kPermissions;
    return {};
}

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
    if (Fault fault = resolve(options.spec, &path, &mode)) return fault;
    if (Fault fault = readWholeFile(path, &old)) return fault;
    if (Fault fault = readSigningKey(options.key, options.keyPass, &key)) return fault;
    if (Fault fault = signBytes(old, key, &spec)) return fault.of(options.spec);
    return replaceFile(path, spec, mode);
}

}  // namespace

int runSign(const SignOptions& options) {
    if (Fault fault = signFile(options)) return reportFault("sign", fault);
    return kExitClean;
}
