#include "temporary_file.h"

#include "files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

Fault TemporaryFile::open() {
    const char* folder = getenv("TMPDIR");
    const bool isGiven = folder != nullptr && *folder != '\0';
    std::string name = std::string(isGiven ? folder : "/tmp") + "/rovu-pack-XXXXXX";
    file_.reset(mkostemp(name.data(), O_CLOEXEC));
    if (!file_.isOpen()) {
        const std::string place = isGiven ? "TMPDIR, which is " + std::string(folder) : "/tmp";
        return {errno,
                "no temporary file in " + place + ": " + strerror(errno) + "; set TMPDIR to another folder"};
    }
    unlink(name.c_str());
    return {};
}
