#include "launcher/message.h"

#include "rovu_sim/text_files.h"

#include <cstring>

namespace rovusim {

void complain(const std::string& text) {
    // One write for the whole line: the command may be writing to the same terminal.
    const std::string line = "rovu-sim: " + text + "\n";
    writeFully(2, line.data(), line.size());
}

int cannot(const std::string& what, const std::string& path, int error) {
    complain("cannot " + what + " " + path + ": " + strerror(error));
    return error;
}

}  // namespace rovusim
