// A channel of the device's log on a stream in memory.

#include "device_log.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace {

constexpr char kEndOfHead[] = "]: ";

// A message may hold line feeds of the spec's; only what has a head begins a new one.
bool splitHead(const std::string& line, std::string* message) {
    const size_t end = line.find(kEndOfHead);
    const size_t open = line.find(" [");
    if (end == std::string::npos || open == std::string::npos || open > end) return false;
    for (size_t i = 0; i < open; ++i) {
        if (isupper(static_cast<unsigned char>(line[i])) == 0) return false;
    }
    *message = line.substr(end + sizeof kEndOfHead - 1);
    return true;
}

}  // namespace

DeviceLog::DeviceLog()
    : stream_(open_memstream(&bytes_, &size_)), channel_(LOG_channel_new(stream_, "pack")) {
    if (channel_ == nullptr) return;
    LOG_channel_set_levels(channel_, LOG_LVL_ERROR | LOG_LVL_WARNING);
    LOG_channel_apply(channel_);
}

DeviceLog::~DeviceLog() {
    LOG_channel_free(channel_);
    if (stream_ != nullptr) fclose(stream_);
    free(bytes_);
}

std::vector<std::string> DeviceLog::take() {
    std::vector<std::string> messages;
    if (stream_ == nullptr || fflush(stream_) != 0) return messages;
    std::istringstream fresh(std::string(bytes_ + taken_, size_ - taken_));
    taken_ = size_;
    for (std::string line, message; std::getline(fresh, line);) {
        if (splitHead(line, &message)) {
            messages.push_back(message);
        } else if (!messages.empty()) {
            messages.back() += "\n" + line;
        }
    }
    return messages;
}

std::string DeviceLog::takeText() {
    std::string text;
    for (const std::string& message : take()) {
        if (!text.empty() && text.back() == '.') text.pop_back();
        text += (text.empty() ? "" : "; ") + message;
    }
    return text;
}

std::string DeviceLog::takeFirstLine() {
    const std::vector<std::string> messages = take();
    return messages.empty() ? "" : messages.front().substr(0, messages.front().find('\n'));
}

std::string withMeaning(const std::string& message) {
    constexpr struct {
        int number;
        const char* meaning;
    } kMeanings[] = {
        {EBADMSG, "does not verify"},
        {EILSEQ, "malformed"},
        {EBADRQC, "does not evaluate"},
        {EOVERFLOW, "too long"},
        {ENOBUFS, "too long"},
        {EINVAL, "not a value that is allowed"},
        {ENOENT, "no such file"},
        {ENOMEM, "not enough memory"},
        {ENOSPC, "no space left"},
        {EACCES, "no permission"},
        {ENOKEY, "the set is not certain"},
    };
    const size_t end = message.find_last_not_of('.') + 1;
    for (const auto& row : kMeanings) {
        const std::string number = ": " + std::to_string(row.number);
        if (end < number.size() || message.compare(end - number.size(), number.size(), number) != 0) continue;
        return message.substr(0, end) + " (" + row.meaning + ")" + message.substr(end);
    }
    return message;
}

std::string withFullStop(const std::string& text) {
    return !text.empty() && text.back() == '.' ? text : text + ".";
}
