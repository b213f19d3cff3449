// The logging library: six slots for channels, one list of the messages used so far, one lock.
//
// Nothing is allocated when a message is logged. A signal handler may log: signals are blocked for as
// long as the lock is held, so a handler never meets its own thread's lock, and the signal is delivered
// the moment the lock is free.

#include "lock/lock.h"
#include "log_state.h"
#include "utc.h"

#include <cassert>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>

// Made before, and so released after, every object that another file may log from.
__attribute__((init_priority(101))) LOG_Channel channels[kChannelCount];
uint32_t chanInUse;
LOG_Msg* msgList;
LOG_ErrorHook errorHook;
uint32_t errorCount;
pthread_mutex_t logMutex;

namespace {

constexpr size_t timeStampLen = 14;  // "03/14-09:26:53"
constexpr time_t kFlushPeriod = 60;  // seconds
constexpr size_t kHookTextSize = 256;

bool inSignalHandler = false;

bool isPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

// Defers every signal of this thread to the end of the scope, and hands `errno` back as it was. A reader of
// the log that has gone away costs the log, and not the run: the SIGPIPE that it causes is taken back.
struct SignalsHeld {
    sigset_t before;
    bool pipePending;
    int savedErrno = errno;

    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
        pipePending = isPending(SIGPIPE);
    }
    ~SignalsHeld() {
        if (!pipePending && isPending(SIGPIPE)) takePipeSignal();
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        errno = savedErrno;
    }
    static void takePipeSignal() {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        const struct timespec noWait = {0, 0};
        sigtimedwait(&pipe, nullptr, &noWait);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
};

// The order matters: signals are held before the lock is taken and until it is released.
struct LogLock {
    SignalsHeld signals;
    zem::Lock lock{&logMutex};
};

uint8_t channelBit(uint32_t index) {
    return static_cast<uint8_t>(1U << index);
}

// A user may report these two assertions, so they are written exactly as they are documented.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-conversion"
// clang-format off
void assertReleasable(const LOG_Channel* ch) {
    assert(ch == &channels[ch->index] && (chanInUse & (1<<ch->index)) != 0);
    static_cast<void>(ch);
}

void assertLive(const LOG_Channel* ch) {
    assert(ch != 0 && ch == &channels[ch->index] && (chanInUse & (1<<ch->index)) != 0);
    static_cast<void>(ch);
}
// clang-format on
#pragma GCC diagnostic pop

int compareNames(const ModuleName& left, const ModuleName& right) {
    return memcmp(left.bytes, right.bytes, sizeof left.bytes);
}

// A lower-bound binary search in the sorted filter; an empty filter takes every module.
bool takesModule(LOG_Channel& ch, const ModuleName& name) {
    if (ch.moduleV.empty()) return true;
    uint32_t first = 0;
    uint32_t len = ch.moduleV.size();
    while (len > 0) {
        const uint32_t half = len / 2;
        const uint32_t mid = first + half;
        if (compareNames(ch.moduleV.get(mid), name) < 0) {
            first = mid + 1;
            len -= half + 1;
        } else {
            len = half;
        }
    }
    return first < ch.moduleV.size() && compareNames(ch.moduleV.get(first), name) == 0;
}

bool matches(LOG_Channel& ch, const LOG_Msg& msg) {
    return takesModule(ch, msg.module->name) && (msg.level & ch.levels) != 0;
}

// A call site reads the mask without the lock, so it is always written in one piece.
void storeMask(LOG_Msg& msg, unsigned int mask) {
    __atomic_store_n(&msg.chanMask, static_cast<uint8_t>(mask), __ATOMIC_RELAXED);
}

void registerMessage(LOG_Msg* msg) {
    assert(msg->next == 0);
    msg->next = msgList;
    msgList = msg;
    unsigned int mask = 0;
    for (uint32_t i = 0; i < kChannelCount; ++i) {
        if ((chanInUse & channelBit(i)) != 0 && matches(channels[i], *msg)) mask |= channelBit(i);
    }
    storeMask(*msg, mask);
}

__attribute__((format(printf, 2, 0))) void reportError(const LOG_Msg& msg, const char* format, va_list args) {
    ++errorCount;
    if (errorHook == nullptr) return;
    char text[kHookTextSize];
    if (vsnprintf(text, sizeof text, format, args) <= 0) return;
    errorHook(msg.module->name.bytes, msg.module->sourcePath, msg.line, text);
}

void formatTimeStamp(char (&stamp)[timeStampLen + 1], time_t now) {
    struct tm utc;
    if (inSignalHandler) {
        breakDownUtc(now, &utc);
    } else {
        gmtime_r(&now, &utc);
    }
    const int n = static_cast<int>(strftime(stamp, sizeof stamp, "%m/%d-%T", &utc));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
    // clang-format off
    assert(n == (int)timeStampLen);
    // clang-format on
#pragma GCC diagnostic pop
    static_cast<void>(n);
}

// Returns the number of bytes of the line, as far as it was written.
__attribute__((format(printf, 4, 0))) uint32_t writeLine(FILE* out, const LOG_Msg& msg, const char* stamp,
                                                         const char* format, va_list args) {
    const unsigned int line = msg.line;
    const int prefix =
        fprintf(out, "%s [%s:%u, %s]: ", msg.module->name.bytes, msg.module->sourcePath, line, stamp);
    if (prefix <= 0) return 0;
    const int text = vfprintf(out, format, args);
    if (text < 0) return static_cast<uint32_t>(prefix);
    fputc('\n', out);
    return static_cast<uint32_t>(prefix) + static_cast<uint32_t>(text) + 1;
}

void flushIfDue(LOG_Channel& ch, time_t now) {
    if (now < ch.nextFlush) return;
    fflush(ch.fid);
    ch.nextFlush = now + kFlushPeriod;
}

// Counts up the decimal digits at the end of the name, in place. The length never changes: a carry that
// meets no further digit is lost, and a name without digits stays.
void incrementFileName(char* name) {
    for (char* digit = name + strlen(name); digit != name;) {
        --digit;
        if (*digit < '0' || *digit > '9') return;
        if (*digit < '9') {
            ++*digit;
            return;
        }
        *digit = '0';
    }
}

void rotateIfFull(LOG_Channel& ch, uint32_t written) {
    if (ch.fileName == nullptr || written == 0) return;
    ch.fileSize += written;
    if (ch.fileSize <= kMaxFileSize) return;
    fclose(ch.fid);
    incrementFileName(ch.fileName);
    ch.fid = fopen(ch.fileName, "w");
    ch.fileSize = 0;
    if (ch.fid == nullptr) fprintf(stderr, "Failed to open file \"%s\"\n", ch.fileName);
}

// Every channel formats the arguments afresh; the time is read once, when the first one writes.
__attribute__((format(printf, 2, 0))) void writeToChannels(const LOG_Msg& msg, const char* format,
                                                           va_list args) {
    char stamp[timeStampLen + 1] = "";
    time_t now = 0;
    for (uint32_t i = 0; i < kChannelCount; ++i) {
        LOG_Channel& ch = channels[i];
        if ((msg.chanMask & channelBit(i)) == 0 || ch.fid == nullptr) continue;
        if (stamp[0] == '\0') {
            now = time(nullptr);
            formatTimeStamp(stamp, now);
        }
        va_list fresh;
        va_copy(fresh, args);
        const uint32_t written = writeLine(ch.fid, msg, stamp, format, fresh);
        va_end(fresh);
        flushIfDue(ch, now);
        rotateIfFull(ch, written);
    }
}

}  // namespace

void LOG_signal_handler_entered() {
    inSignalHandler = true;
}

LOG_Channel* LOG_channel_new(FILE* stream, const char* name) {
    const LogLock held;
    uint32_t slot = 0;
    while (slot < kChannelCount && (chanInUse & channelBit(slot)) != 0)
        ++slot;
    if (slot == kChannelCount) return nullptr;
    if (chanInUse == 0) errorCount = 0;
    chanInUse |= channelBit(slot);

    LOG_Channel& ch = channels[slot];
    assert(ch.moduleV.empty() && ch.levels == 0 && ch.fid == 0);
    ch.index = slot;
    ch.fid = stream;
    strncpy(ch.name, name, sizeof ch.name);
    ch.name[sizeof ch.name - 1] = '\0';
    return &ch;
}

void LOG_channel_free(LOG_Channel* ch) {
    if (ch == nullptr) return;
    const LogLock held;
    assertReleasable(ch);
    const uint8_t bit = channelBit(ch->index);
    chanInUse &= ~static_cast<uint32_t>(bit);
    for (LOG_Msg* msg = msgList; msg != nullptr; msg = msg->next)
        storeMask(*msg, msg->chanMask & ~static_cast<unsigned int>(bit));

    if (ch->fileName != nullptr) {
        if (ch->fid != nullptr) {
            fclose(ch->fid);
            if (ch->fileSize == 0) remove(ch->fileName);
        }
        free(ch->fileName);
        ch->fileName = nullptr;
    }
    ch->moduleV.clear();
    ch->fid = nullptr;
    ch->levels = 0;
    ch->fileSize = 0;
    ch->nextFlush = 0;
}

void LOG_channel_set_levels(LOG_Channel* ch, unsigned int levels) {
    const LogLock held;
    assertLive(ch);
    ch->levels = levels;
}

void LOG_channel_apply(LOG_Channel* ch) {
    const LogLock held;
    assertLive(ch);
    const unsigned int bit = channelBit(ch->index);
    for (LOG_Msg* msg = msgList; msg != nullptr; msg = msg->next) {
        const unsigned int others = msg->chanMask & ~bit;
        storeMask(*msg, matches(*ch, *msg) ? others | bit : others);
    }
}

void LOG_log_msg(LOG_Msg* msg, const char* format, ...) {
    const LogLock held;
    if (msg->chanMask == kUnregisteredMask) registerMessage(msg);
    va_list args;
    va_start(args, format);
    if ((msg->level & LOG_LVL_ERROR) != 0) {
        va_list forHook;
        va_copy(forHook, args);
        reportError(*msg, format, forHook);
        va_end(forHook);
    }
    if (msg->chanMask != 0) writeToChannels(*msg, format, args);
    va_end(args);
}
