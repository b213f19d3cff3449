// What the unit tests share: the captured log, and library calls that they watch or make fail.

#pragma once

#include "support/log_capture.h"
#include "support/program.h"
#include "util/version.h"

#include <cerrno>
#include <curl/curl.h>
#include <deque>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

using namespace std::string_literals;

/// The version that a good string names.
inline PackedVersion versionOf(const char* good) {
    PackedVersion version = 0;
    EXPECT_EQ(parseVersion(&version, good), 0);
    return version;
}

/// What the calls do that the linker routes through interposed.cpp.
struct Interposed {
    bool tracesFiles = false;  // write(), fsync() and rename() append to `fileCalls`
    std::vector<std::string> fileCalls;
    int refusedRename = 0;            // the call of rename(), counted from 1, that fails with EIO; 0: none
    bool refusesClose = false;        // close() closes, and fails with EIO
    int interruptions = 0;            // so many calls of read() and write() fail with EINTR ...
    size_t mostBytes = SIZE_MAX;      // ... and the others move no more than so many bytes
    const char* shellLine = nullptr;  // what popen() runs for anything; "": it fails without an errno value
    std::vector<unsigned int> waits;  // what sleep() was given; it returns at once
    timespec now = {};                // of all clocks
    time_t transferSeconds = 0;       // how long a transfer appears to take
    std::deque<CURLcode> outcomes;    // of the next transfers, whatever they really come to
    std::vector<std::pair<int, long>> numbers;  // options of libcurl that are numbers, as they were set
    int handlesMade = 0, handlesReleased = 0;
};
extern Interposed interposed;

/// Lets all calls be themselves but for what is asked for within its scope.
struct Interposition {
    Interposition() { interposed = {}; }
    ~Interposition() { interposed = {}; }
};
