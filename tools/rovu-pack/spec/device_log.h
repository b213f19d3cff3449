// What the device's own code says while it works on a spec here.

#pragma once

#include "logging/log.h"

#include <cstdio>
#include <string>
#include <vector>

/// Takes errors and warnings of the device's code from its construction to the end of its scope.
class DeviceLog {
public:
    DeviceLog();
    ~DeviceLog();
    DeviceLog(const DeviceLog&) = delete;
    DeviceLog& operator=(const DeviceLog&) = delete;

    /// \return the messages since the last call, without the heads of their lines.
    std::vector<std::string> take();

    /// The same, joined to one string.
    std::string takeText();

    /// The first line of the first of them; empty if there is none.
    std::string takeFirstLine();

private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t taken_ = 0;
    FILE* stream_;
    LOG_Channel* channel_;
};

/// Puts words after a number of an error at the end of a device's message: "... release number: 84 (malformed)".
std::string withMeaning(const std::string& message);

/// Ends a sentence with a message: some of them have a full stop of their own.
std::string withFullStop(const std::string& text);
