// One command at a time changes a device: a run and a restart hold the state directory's lock.

#include "rovu_sim/state_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace rovusim {

int lockDevice(const std::string& stateDir, Descriptor* lock) {
    Descriptor file(open((stateDir + "/run/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (file.fd < 0) return errno;
    if (flock(file.fd, LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? EBUSY : errno;
    *lock = static_cast<Descriptor&&>(file);
    return 0;
}

}  // namespace rovusim
