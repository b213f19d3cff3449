// Diagnostics: messages, independent of their output.
//
// Every call site owns one static record. Which of the channels take it is computed once and cached
// there as a bit mask, so a message that no channel takes costs one byte load and test: no call, and its
// arguments are not evaluated.
//
// A source file that logs includes the log_module.h of its folder, which declares the module that the file belongs
// to: LOG_MODULE("UBI", "common/ubi_tools");

#pragma once

#include <cstdint>
#include <cstdio>

/// A module's name: at most 7 characters, padded with NULs, compared and ordered as 8 unsigned bytes.
struct ModuleName {
    char bytes[8];
};

struct LOG_Module {
    const char* sourcePath;  // relative to the source root; printed in every line
    ModuleName name;
};

/// The levels: a message has one of them, a channel takes a mask of them.
enum LOG_Level : uint8_t {
    LOG_LVL_ERROR = 0x01,
    LOG_LVL_WARNING = 0x02,
    LOG_LVL_NOTICE = 0x04,
    LOG_LVL_INFO = 0x08,
    LOG_LVL_DEBUG = 0x10,
};

/// The mask of a record that has not been used yet. Computed masks use bits 0 to 5 only.
constexpr uint8_t kUnregisteredMask = 0xFF;

/// One call site. Static, and linked into the library's list from its first use to the process's end.
struct LOG_Msg {
    const LOG_Module* module;
    uint8_t chanMask;  // bit i: channel i takes this message; kUnregisteredMask before the first use
    uint8_t level;
    uint16_t line;
    LOG_Msg* next;  // registered messages, newest first
};

/// An output channel, one of six. Made and released by the calls below; its fields are the library's.
struct LOG_Channel;

/// Takes the lowest free of the six slots, for `stream` (null: the channel writes nothing), which stays
/// the caller's. Of `name`, which is copied, the first 7 characters count. The channel takes no message
/// until its levels are set and applied.
/// \return the channel, or null if all slots are in use.
LOG_Channel* LOG_channel_new(FILE* stream, const char* name);

/// Releases the slot; no message reaches the channel from here on. A null `ch` does nothing. The
/// stream is closed only if the channel has a file name of its own.
void LOG_channel_free(LOG_Channel* ch);

/// Stores the mask of LOG_Level bits that `ch` takes. Messages that have been used before keep their
/// masks until LOG_channel_apply().
void LOG_channel_set_levels(LOG_Channel* ch, unsigned int levels);

/// Recomputes the bit of `ch` in every message that has been used before.
void LOG_channel_apply(LOG_Channel* ch);

/// Writes one message to every channel that takes it. For LOG_MSG() only. `format` is printf's and
/// holds no newline. Signals are blocked while the lock is held, so a handler may log; `errno` is kept.
void LOG_log_msg(LOG_Msg* msg, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// For a signal handler that logs and does not return: from here on time stamps are made without the C library's lock on
/// the time zone, which the interrupted code may hold. The lock of this library is no danger: see LOG_log_msg().
void LOG_signal_handler_entered();

/// Declares the module of a source file.
#define LOG_MODULE(name, sourcePath)                                                                         \
    namespace {                                                                                              \
    constexpr LOG_Module logModule = {sourcePath, {name}};                                                   \
    }                                                                                                        \
    static_assert(sizeof(name) <= sizeof(ModuleName), "a module's name has at most 7 characters")

/// LOG_MSG(level, format, ...): logs one message of this source file's module. The mask is read without
/// the lock: LOG_log_msg() looks again, so a stale value costs one call and writes nothing.
#define LOG_MSG(msgLevel, ...)                                                                               \
    do {                                                                                                     \
        static LOG_Msg logMsg = {&logModule, kUnregisteredMask, msgLevel, __LINE__, nullptr};                \
        if (__atomic_load_n(&logMsg.chanMask, __ATOMIC_RELAXED) != 0) LOG_log_msg(&logMsg, __VA_ARGS__);     \
    } while (false)
