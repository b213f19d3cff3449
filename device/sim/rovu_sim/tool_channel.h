// The protocol between a simulated tool inside a device and the launcher outside.
//
// The device's flash, its boot loader's environment and its call log lie outside, where no script can reach them: a
// tool inside sends its command line, and the launcher does the work. Bytes and not texts from inside reach the
// launcher's files: a path is opened inside, and comes as a descriptor.
#pragma once

#include "util/descriptor.h"

#include <cstddef>
#include <string>
#include <vector>

namespace rovusim {

struct ToolRequest {
    std::vector<std::string> words;  // the command line, never empty; the first word is the tool's name
    zem::Descriptor input, output, errors;  // the tool's standard streams
    zem::Descriptor image;                  // open on the last word, if that is a file that can be read
};

/// What the tool does next.
enum class NextStep : int {
    eExit,          // with `value`
    eDie,           // by the signal `value`
    eHang,          // until it is ended
    eKill,          // ends the processes that its words name, then exits with `value`
    eRun,           // becomes the real program
    eRunAndReturn,  // runs the real program, then exits with `value`
};

enum class NodeChange : int { eNone, eMade, eRemoved };

struct ToolReply {
    NextStep next = NextStep::eExit;
    int value = 0;
    NodeChange node = NodeChange::eNone;
    unsigned volumeId = 0;  // whose node under /dev the tool makes or removes
};

/// \return 0, E2BIG for a command line of more than a mebibyte, or another positive errno value.
[[nodiscard]] int sendRequest(int socket, const ToolRequest& request);

/// Trusts nothing: the peer may be any program inside.
/// \return 0, EPIPE if the peer is gone, EILSEQ for what is no request, or another positive errno value.
[[nodiscard]] int receiveRequest(int socket, ToolRequest* request);

[[nodiscard]] int sendReply(int socket, const ToolReply& reply);
[[nodiscard]] int receiveReply(int socket, ToolReply* reply);

/// Sends `size` bytes, at least one, and the descriptors, of which the caller keeps its own.
/// \return 0 or a positive errno value. See unix(7), SCM_RIGHTS.
[[nodiscard]] int sendMessage(int socket, const void* bytes, size_t size,
                              const std::vector<int>& descriptors);

/// Waits for a message of exactly `size` bytes. Its descriptors are close-on-exec here.
/// \return 0, EPIPE if the peer is gone or sent anything else, or another positive errno value.
[[nodiscard]] int receiveMessage(int socket, void* bytes, size_t size,
                                 std::vector<zem::Descriptor>* descriptors);

}  // namespace rovusim
