// What went wrong, in a sentence for the user.

#pragma once

#include <string>
#include <utility>

/// The outcome of work that can fail: either no fault, or a code with a message.
class [[nodiscard]] Fault {
public:
    /// No fault.
    Fault() = default;

    /// \param code a positive errno value.
    /// \param message one sentence without its full stop.
    Fault(int code, std::string message) : code_(code), message_(std::move(message)) {}

    /// Whether there is a fault.
    explicit operator bool() const { return code_ != 0; }

    int code() const { return code_; }
    const std::string& message() const { return message_; }

    /// \return this fault, which must be one, as a fault of `subject`: "SUBJECT: MESSAGE".
    Fault of(const std::string& subject) const { return {code_, subject + ": " + message_}; }

private:
    int code_ = 0;
    std::string message_;
};
