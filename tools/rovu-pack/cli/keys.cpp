// The subcommands on keys and signatures: "keygen"; "secret", which never moves what stands in a key file, since the device
// finds a secret by its offset; "sign" and "attach".

#include "archive/output_file.h"
#include "cli/commands.h"
#include "host/digests.h"
#include "host/files.h"
#include "host/limited_work.h"
#include "signing/key_files.h"
#include "signing/signing.h"
#include "spec_view/device_verdict.h"
#include "spec_view/spec_view.h"
#include "util/descriptor.h"
#include "util/file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kPrivateName[] = "/private.pem";
constexpr mode_t kFolderMode = 0777;  // the mask narrows it
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kPublicMode = 0644;

bool exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

Fault makePair(const std::string& folder) {
    if (mkdir(folder.c_str(), kFolderMode) != 0 && errno != EEXIST) return fileFault(folder, errno);
    const std::string privatePath = folder + kPrivateName;
    const std::string publicPath = folder + "/" + kPublicKeyName;
    for (const std::string& path : {privatePath, publicPath}) {
        if (exists(path))
            return {EEXIST, path + " exists and is unchanged; use it, or name another folder for a new pair"};
    }
    std::string privatePem;
    std::string publicPem;
    if (Fault fault = makeKeyPair(&privatePem, &publicPem)) return fault;
    if (Fault fault = createFile(privatePath, privatePem, kPrivateMode)) return fault;
    if (Fault fault = createFile(publicPath, publicPem, kPublicMode)) {
        unlink(privatePath.c_str());
        return fault;
    }
    printf("%s  private key: keep it secret, it signs updates\n%s  public key: for the devices\n",
           privatePath.c_str(), publicPath.c_str());
    return {};
}

}  // namespace

int runKeygen(const std::string& folder) {
    if (Fault fault = makePair(folder)) return reportFault(" keygen", fault);
    return kExitClean;
}

namespace {

constexpr mode_t kSecretMode = 0600;

Fault appendSecret(const std::string& path, int64_t* offset) {
    uint64_t size = 0;
    if (Fault fault = requireRegularFile(path, &size); fault && fault.code() != ENOENT) return fault;
    const zem::Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, kSecretMode));
    if (file.get() < 0) return fileFault(path, errno);
    // Locked: of two at the same time, each must print its own offset.
    if (flock(file.get(), LOCK_EX) != 0) return fileFault(path, errno);
    struct stat status;
    if (fstat(file.get(), &status) != 0) return fileFault(path, errno);
    unsigned char secret[kSecretSize];
    if (status.st_size > INT32_MAX)
        return {EFBIG, path + ": offsets end at 2147483647, and the file is larger; name a new one"};
    if (RAND_bytes(secret, static_cast<int>(sizeof secret)) != 1) return fileFault(path, EIO);
    if (int rc = writeFd(file.get(), secret, sizeof secret, false, true); rc != 0) {
        Fault fault = fileFault(path, rc);
        if (ftruncate(file.get(), status.st_size) == 0) return fault;
        return {rc, fault.message() + ", and half a secret is left at its end"};
    }
    *offset = status.st_size;
    return {};
}

}  // namespace

int runSecret(const std::string& path) {
    int64_t offset = 0;
    if (Fault fault = appendSecret(path, &offset)) return reportFault(" secret", fault);
    printf("%s\n", std::to_string(offset).c_str());
    return kExitClean;
}

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

// Nothing that a device would refuse is offered for signing.
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

namespace {

// The device's code decides; the diagnosis before it is more precise than a device's.
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
