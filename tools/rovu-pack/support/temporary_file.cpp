#include "temporary_file.h"

#include "files.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

Fault TemporaryFile::open() {
    const char* folder = getenv("TMPDIR");
    const bool isGiven = folder != nullptr && *folder != '\0';
    std::string name = std::string(isGiven ? folder : "/tmp") + "/rovu-pack-XXXXXX";
    file_.reset(mkostemp(name.data(), O_CLOEXEC));
    if (!file_.isOpen()) {
        return fileFault(isGiven ? "no temporary file in TMPDIR, which is " + std::string(folder)
                                 : "no temporary file in /tmp",
                         errno);
    }
    unlink(name.c_str());
    return {};
}
