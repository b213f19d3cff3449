#include "host/leftovers.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

volatile sig_atomic_t noted = 0;

void note(int signal) {
    noted = signal;
}

}  // namespace

void noteInterruptions() {
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before;
        // What the caller ignores, as nohup does, stays ignored.
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

Fault interruption() {
    return noted == 0 ? Fault() : Fault(EINTR, "interrupted");
}

void endByNotedSignal() {
    if (noted == 0) return;
    signal(noted, SIG_DFL);
    raise(noted);
}

namespace {

zem::Descriptor openFolder(const std::string& path) {
    return zem::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool isOwn(const zem::Descriptor& folder) {
    struct stat status;
    return fstat(folder.get(), &status) == 0 && status.st_uid == geteuid();
}

// Before it was locked, another run may have removed it as a leftover.
bool isStillThere(const zem::Descriptor& folder, const std::string& path) {
    struct stat locked;
    struct stat named;
    return fstat(folder.get(), &locked) == 0 && lstat(path.c_str(), &named) == 0 &&
           locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
}

}  // namespace

void removeLeftovers(const std::string& parent, const std::string& prefix) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(parent, ignored)) {
        if (entry.path().filename().string().rfind(prefix, 0) != 0) continue;
        const zem::Descriptor folder = openFolder(entry.path());
        if (folder.isOpen() && isOwn(folder) && flock(folder.get(), LOCK_EX | LOCK_NB) == 0)
            std::filesystem::remove_all(entry.path(), ignored);
    }
}

int makeLockedFolder(const std::string& parent, const std::string& prefix, zem::Descriptor* lock,
                     std::string* path) {
    for (;;) {
        std::string made = parent;
        made.append("/").append(prefix).append("XXXXXX");
        if (mkdtemp(made.data()) == nullptr) return errno;
        zem::Descriptor folder = openFolder(made);
        if (!folder.isOpen() && errno != ENOENT) return errno;
        if (folder.isOpen() && flock(folder.get(), LOCK_EX) != 0) return errno;
        if (!folder.isOpen() || !isStillThere(folder, made)) continue;
        *lock = std::move(folder);
        *path = made;
        return 0;
    }
}
