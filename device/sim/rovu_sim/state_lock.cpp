#include "rovu_sim/state_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <utility>

namespace rovusim {

int lockDevice(const std::string& stateDir, zem::Descriptor* lock) {
    zem::Descriptor file(open((stateDir + "/run/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? EBUSY : errno;
    *lock = std::move(file);
    return 0;
}

}  // namespace rovusim
