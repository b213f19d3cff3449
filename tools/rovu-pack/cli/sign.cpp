// Signs a spec's text that was written by hand, where it lies.

#include "commands.h"
#include "files.h"
#include "signing.h"
#include "spec_trial.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace {

constexpr mode_t kPermissions = 07777;

// Where a link leads: it is the file that is replaced, not the link.
int resolve(const std::string& path, std::string* real, mode_t* mode, std::string* error) {
    char resolved[PATH_MAX];
    struct stat status;
    if (realpath(path.c_str(), resolved) == nullptr || stat(resolved, &status) != 0)
        return fileError(path, errno, error);
    *real = resolved;
    *mode = status.st_mode & kPermissions;
    return 0;
}

int signFile(const SignOptions& options, std::string* error) {
    std::string path;
    mode_t mode = 0;
    std::string old;
    SigningKey key(nullptr, EVP_PKEY_free);
    if (int rc = resolve(options.spec, &path, &mode, error); rc != 0) return rc;
    if (int rc = readWholeFile(path, &old, error); rc != 0) return rc;
    if (int rc = readSigningKey(options.key, &key, error); rc != 0) return rc;

    std::string text;
    std::string spec;
    int rc = unsignedTextOf(old, &text, error);
    if (rc == 0) rc = signText(text, key.get(), &spec, error);
    if (rc == 0) rc = tryOnDevice(spec, publicPemOf(key.get()), error);
    if (rc != 0) {
        *error = options.spec + ": " + *error;
        return rc;
    }
    return replaceFile(path, spec, mode, error);
}

}  // namespace

int runSign(const SignOptions& options) {
    std::string error;
    if (signFile(options, &error) == 0) return kExitClean;
    fprintf(stderr, "rovu-pack sign: %s\n", error.c_str());
    return kExitTrouble;
}
