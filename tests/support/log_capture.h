// The log of the code under test, read back.

#pragma once

#include "logging/log.h"

#include <string>

/// Takes the messages of `levels` from its construction to the end of its scope.
class LogCapture {
public:
    explicit LogCapture(unsigned int levels = LOG_LVL_ERROR);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    LOG_Channel* channel() const { return channel_; }

    /// The lines as they were written.
    std::string lines() const;

    /// The lines as "MODULE: message", each with its newline.
    std::string messages() const;

private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
    FILE* const stream_ = open_memstream(&bytes_, &size_);
    LOG_Channel* const channel_ = LOG_channel_new(stream_, "capture");
};

/// The lines of a log without their heads: the messages, each with its newline.
std::string withoutLogHeads(const std::string& lines);
