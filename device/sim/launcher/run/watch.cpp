#include "launcher/run/watch.h"

#include "launcher/host_program.h"
#include "launcher/run/limits.h"
#include "rovu_sim/call_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/inotify.h>
#include <unistd.h>

namespace rovusim {
namespace {

constexpr int kBarWidth = 24;
constexpr const char* kGreen = "\033[32m";
constexpr const char* kRed = "\033[31m";
constexpr const char* kCyan = "\033[36m";
constexpr const char* kPlain = "\033[0m";
constexpr const char* kEraseLine = "\r\033[2K";

enum class Mark { eRunning, eDone, eFailed };

double secondsSince(int64_t start) {
    return static_cast<double>(nowMilliseconds() - start) / 1000.0;
}

bool isDownload(const std::string& state) {
    return state.compare(0, 11, "downloading") == 0;
}

bool isLast(const std::string& state) {
    return state == "complete" || state == "error";
}

std::string bar(int percent) {
    const int filled = std::min(std::max(percent, 0), 100) * kBarWidth / 100;
    std::string text;
    for (int i = 0; i < kBarWidth; ++i)
        text += i < filled ? "█" : "░";
    return text;
}

void drawLine(const Watch& watch, Mark mark) {
    const char* signs[] = {"▸", "✓", "✗"};
    const char* colours[] = {kCyan, kGreen, kRed};
    const int index = static_cast<int>(mark);
    printf("%s%s%s%s %-28s", kEraseLine, colours[index], signs[index], kPlain, watch.state.c_str());
    if (!isLast(watch.state)) {
        // Only a download has a percentage; any other state's bar is empty until the state ends.
        const bool done = mark == Mark::eDone;
        const int percent = done ? 100 : (isDownload(watch.state) ? watch.percent : 0);
        printf(" %s%s%s", colours[index], bar(percent).c_str(), kPlain);
        if (isDownload(watch.state) && !done) {
            printf(" %3d%%", watch.percent);
        } else {
            printf("     ");
        }
        printf(" %6.1f s", secondsSince(watch.entered));
        if (watch.attempts > 1) printf("  attempt %d", watch.attempts);
    }
    fflush(stdout);
}

void leaveState(const Watch& watch, bool failed) {
    if (!watch.terminal || watch.state.empty()) return;
    drawLine(watch, failed ? Mark::eFailed : Mark::eDone);
    printf("\n");
}

void enterState(Watch* watch, const Progress& progress) {
    leaveState(*watch, progress.state == "error");
    watch->state = progress.state;
    watch->attempts = progress.attempts;
    watch->percent = progress.percent;
    watch->entered = nowMilliseconds();
    if (watch->terminal) {
        redrawWatch(*watch);
    } else {
        printf("%8.1f s  %s\n", secondsSince(watch->started), watch->state.c_str());
        fflush(stdout);
    }
}

}  // namespace

int startWatch(const std::string& tmp, Watch* watch) {
    watch->changes = zem::Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!watch->changes.isOpen()) return cannot("watch", tmp, errno);
    const uint32_t events = IN_MOVED_TO | IN_CLOSE_WRITE | IN_MODIFY;
    if (inotify_add_watch(watch->changes.get(), tmp.c_str(), events) < 0) return cannot("watch", tmp, errno);
    watch->path = progressPathIn(tmp);
    watch->terminal = isatty(STDOUT_FILENO) != 0;
    watch->started = nowMilliseconds();
    return 0;
}

void followProgress(Watch* watch) {
    bool changed = false;
    const std::string name = watch->path.substr(watch->path.rfind('/') + 1);
    alignas(inotify_event) char events[4096];
    for (ssize_t got = read(watch->changes.get(), events, sizeof events); got > 0;
         got = read(watch->changes.get(), events, sizeof events)) {
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->len > 0 && name == event->name) changed = true;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    Progress progress;
    if (!changed || readProgressFile(watch->path, &progress) != 0) return;
    if (progress.state != watch->state) {
        enterState(watch, progress);
        return;
    }
    watch->attempts = progress.attempts;
    watch->percent = progress.percent;
    redrawWatch(*watch);
}

void redrawWatch(const Watch& watch) {
    if (!watch.terminal || watch.state.empty()) return;
    Mark mark = Mark::eRunning;
    if (watch.state == "complete") mark = Mark::eDone;
    if (watch.state == "error") mark = Mark::eFailed;
    drawLine(watch, mark);
}

void finishWatch(Watch* watch) {
    followProgress(watch);
    if (!watch->terminal || watch->state.empty()) return;
    redrawWatch(*watch);
    printf("\n");
    fflush(stdout);
}

}  // namespace rovusim
