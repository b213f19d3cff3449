#include "support/log_capture.h"

#include <cstdlib>
#include <regex>

LogCapture::LogCapture(unsigned int levels) {
    LOG_channel_set_levels(channel_, levels);
    LOG_channel_apply(channel_);
}

LogCapture::~LogCapture() {
    LOG_channel_free(channel_);
    fclose(stream_);
    free(bytes_);
}

std::string LogCapture::lines() const {
    return fflush(stream_) == 0 ? std::string(bytes_, size_) : "lost";
}

std::string LogCapture::messages() const {
    return std::regex_replace(lines(), std::regex(" \\[[a-z_/]+:[0-9]+, [0-9/:-]+\\]: "), ": ");
}

std::string withoutLogHeads(const std::string& lines) {
    return std::regex_replace(lines, std::regex("[A-Z]+ \\[[^\\]]*\\]: "), "");
}
