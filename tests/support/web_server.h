// Servers on the loopback interface.

#pragma once

#include "support/program.h"

#include <memory>
#include <string>

/// A TCP port of this process's own. Until it listens, connections to it are refused; while nobody accepts,
/// they are established and bring nothing.
class LoopbackPort {
public:
    explicit LoopbackPort(bool listening);
    ~LoopbackPort();
    LoopbackPort(const LoopbackPort&) = delete;
    LoopbackPort& operator=(const LoopbackPort&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(number); }

    const int fd;
    int number = 0;
};

/// A web server with a directory of its own. It ends with the scope.
class WebServer {
public:
    /// \param answersRanges false: a request for a part of a file brings all of it.
    explicit WebServer(bool answersRanges = true);
    ~WebServer();

    /// Where a file must stand to be served, and how it is asked for.
    std::string directory() const { return scratch_.path + "/files"; }
    std::string url() const { return port_.url(); }

    /// What was asked for, in order: a line of path and status for each.
    std::string requests() const;

private:
    const ScratchDir scratch_;
    const LoopbackPort port_;
    std::unique_ptr<Program> nginx_;
};
