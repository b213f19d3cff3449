// What the unit tests share: tables, the log read back, and library calls that they watch or make fail.

#pragma once

#include "logging/log.h"
#include "support/scratch.h"

#include <cerrno>
#include <curl/curl.h>
#include <deque>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

using namespace std::string_literals;

/// Tests a table of texts, "input => outcome | input => outcome". A row names itself.
template <typename Function>
void expectRows(const std::string& table, Function outcomeOf) {
    for (size_t start = 0, end = 0; end != std::string::npos; start = end + 3) {
        end = table.find(" | ", start);
        const std::string row = table.substr(start, end - start);
        EXPECT_EQ(outcomeOf(row.substr(0, row.find(" => "))), row.substr(row.find(" => ") + 4)) << row;
    }
}

/// Takes the messages of `levels` from its construction to the end of its scope.
struct LogCapture {
    explicit LogCapture(unsigned int levels = LOG_LVL_ERROR) {
        LOG_channel_set_levels(channel, levels);
        LOG_channel_apply(channel);
    }
    ~LogCapture() {
        LOG_channel_free(channel);
        fclose(stream);
        free(bytes);
    }

    /// The lines as they were written.
    std::string text() const { return fflush(stream) == 0 ? std::string(bytes, size) : "lost"; }

    /// The lines as "MODULE: message", each with its line feed.
    std::string messages() const {
        return std::regex_replace(text(), std::regex(" \\[[a-z_/]+:[0-9]+, [0-9/:-]+\\]: "), ": ");
    }

    char* bytes = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&bytes, &size);
    LOG_Channel* const channel = LOG_channel_new(stream, "capture");
};

/// What the calls do that the linker leads through interposed.cpp.
struct Interposed {
    size_t refusedAllocation = 0;     // malloc() and calloc() of exactly so many bytes fail; 0: none
    int refusedRename = 0;            // the call of rename(), counted from 1, that fails with EIO; 0: none
    bool refusesClose = false;        // close() closes, and fails with EIO
    int interruptions = 0;            // so many calls of read() and write() fail with EINTR ...
    size_t mostBytes = SIZE_MAX;      // ... and the others move no more than so many bytes
    const char* shellLine = nullptr;  // what popen() runs for anything; "": it fails without an errno value
    std::vector<unsigned int> waits;  // what sleep() was given; it returns at once
    timespec now = {};                // of all clocks
    time_t transferSeconds = 0;       // how long a transfer seems to take
    std::deque<CURLcode> outcomes;    // of the coming transfers, whatever becomes of them
    std::vector<std::pair<int, long>> numbers;  // options of libcurl that are numbers, as they were set
    int handlesMade = 0, handlesReleased = 0;
};
extern Interposed interposed;

/// Lets all calls be themselves but for what is asked for within its scope.
struct Interposition {
    Interposition() { interposed = {}; }
    ~Interposition() { interposed = {}; }
};
