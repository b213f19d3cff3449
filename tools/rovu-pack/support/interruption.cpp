#include "interruption.h"

#include <cerrno>
#include <csignal>

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
