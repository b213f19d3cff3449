#include "shell_output.h"

#include <cstdio>

namespace {

const uint8_t* output = nullptr;  // null: commands are run
size_t outputSize = 0;

}  // namespace

ShellOutput::ShellOutput(const uint8_t* bytes, size_t size) {
    static const uint8_t empty[1] = {0};
    output = size == 0 ? empty : bytes;
    outputSize = size;
}

ShellOutput::~ShellOutput() {
    output = nullptr;
}

extern "C" {

FILE* __real_popen(const char* command, const char* mode);
int __real_pclose(FILE* stream);

FILE* __wrap_popen(const char* command, const char* mode) {
    if (output == nullptr) return __real_popen(command, mode);
    return fmemopen(const_cast<uint8_t*>(output), outputSize, "r");
}

int __wrap_pclose(FILE* stream) {
    return output == nullptr ? __real_pclose(stream) : fclose(stream);
}

}  // extern "C"
