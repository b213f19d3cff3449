// The library's own state, apart from its operations, for log.cpp and for those who extend it.
//
// Everything here is zero at start and is read and changed under `logMutex` only.

#pragma once

#include "logging/log.h"
#include "vector/vector.h"

#include <ctime>
#include <pthread.h>

constexpr uint32_t kChannelCount = 6;

/// A file is rotated when it has grown above this many bytes. The line that crosses the limit still
/// stands in the old file.
constexpr uint32_t kMaxFileSize = 0x1FF00;

struct LOG_Channel {
    char name[8];
    uint32_t index;              // the channel's own slot number
    Vector<ModuleName> moduleV;  // ascending, no duplicates; empty: all modules
    uint32_t levels;
    FILE* fid;          // null: the channel writes nothing
    uint32_t fileSize;  // bytes in the current file of a channel with a file name
    char* fileName;     // null, or a heap string owned by the channel, which rotation changes in place
    time_t nextFlush;
};

/// Called with `logMutex` held, so it must not log: module name, source path, source line, text.
using LOG_ErrorHook = void (*)(const char* module, const char* sourcePath, unsigned int line,
                               const char* text);

extern LOG_Channel channels[kChannelCount];
extern uint32_t chanInUse;  // bit i: slot i is in use
extern LOG_Msg* msgList;
extern LOG_ErrorHook errorHook;
extern uint32_t errorCount;  // error messages since the channels were last all gone
extern pthread_mutex_t logMutex;
