#include "util/installed_version.h"

#include "util/command.h"
#include "util/file.h"

#include <cerrno>
#include <sys/utsname.h>

namespace {

constexpr int kMaxSeparators = 4;
constexpr uint32_t kOutputSize = 64;

// Makes "3.10.49-2-xyz" into "3.10.49.2", in place.
void cutToFourFields(char* release) {
    int separators = 0;
    for (char* c = release; *c != '\0'; ++c) {
        if (*c == '-') *c = '.';
        if (*c != '.') continue;
        if (++separators == kMaxSeparators) {
            *c = '\0';
            return;
        }
    }
}

}  // namespace

int parseKernelRelease(PackedVersion* out, char* release) {
    cutToFourFields(release);
    return parseVersion(out, release);
}

int getKernelVersion(PackedVersion* out) {
    struct utsname name;
    if (uname(&name) != 0) return errno;
    return parseKernelRelease(out, name.release);
}

int getRootfsVersion(PackedVersion* out) {
    char text[kOutputSize];
    int exitStatus = 0;
    int eof = 0;
    const int32_t got =
        runCommand("/usr/local/bin/readplatform.sh rootfsrev", text, sizeof text, &exitStatus, &eof);
    if (got < 0) return -got;
    if (exitStatus != 0) return exitStatus;
    if (eof == 0) return EOVERFLOW;
    trimTrailingSpace(text);
    return parseVersion(out, text);
}
