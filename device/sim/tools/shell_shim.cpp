#include "tools/shell_shim.h"

#include "rovu_sim/tool_names.h"

#include <cstring>
#include <string>
#include <sys/auxv.h>

namespace rovusim {
namespace {

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The path given to execve: for a script with an interpreter line, the script.
std::string executedFile() {
    const unsigned long address = getauxval(AT_EXECFN);
    return address == 0 ? "" : reinterpret_cast<const char*>(address);
}

}  // namespace

bool isShellWithScript(int argc, char** argv) {
    if (baseName(argv[0]) != kShellTool || baseName(executedFile()) != kShellTool) return false;
    for (int i = 1; i < argc; ++i) {
        const char* word = argv[i];
        if (word[0] != '-' && word[0] != '+') return true;
        if (std::strcmp(word, "-") == 0 || std::strcmp(word, "--") == 0) return i + 1 < argc;
        // Any letter in a cluster such as -ec; -s reads standard input, and -o has a word of its own.
        if (word[0] == '-' && std::strpbrk(word, "cs") != nullptr) return false;
        if (std::strchr(word, 'o') != nullptr) ++i;
    }
    return false;
}

}  // namespace rovusim
