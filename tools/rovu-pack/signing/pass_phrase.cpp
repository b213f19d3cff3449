#include "signing/pass_phrase.h"

#include "host/files.h"
#include "host/leftovers.h"
#include "host/text.h"
#include "util/descriptor.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <unistd.h>

namespace {

constexpr char kOption[] = "--key-pass";
constexpr char kForms[] = "file:PATH, fd:N or env:NAME";

bool readDescriptorNumber(const std::string& text, int* fd) {
    char* end = nullptr;
    errno = 0;
    const long number = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || number < 0 || number > INT_MAX) return false;
    *fd = static_cast<int>(number);
    return true;
}

// Without the words after the option, which may be the pass phrase.
Fault refusal(const std::string& source, const std::string& option) {
    if (!startsWith(source, "pass:")) return {EINVAL, option + ": the source of a pass phrase is " + kForms};
    return {EINVAL, option +
                        ": \"pass:\" would show the pass phrase to everybody who lists the processes; put "
                        "it into a file, and give file:PATH"};
}

bool canOpenTerminal() {
    return zem::Descriptor(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)).get() >= 0;
}

}  // namespace

PassPhrase::~PassPhrase() {
    OPENSSL_cleanse(bytes_, sizeof bytes_);
}

Fault PassPhrase::read(const std::string& source, const char* option) {
    origin_ = source;
    if (source.empty()) return {};
    std::string rest;
    Fault fault;
    int fd = -1;
    if (splitStart(source, "file:", &rest)) {
        File file;
        fault = openFileOrPipe(rest, &file);
        fault = fault ? Fault(fault.code(), fault.message().substr(rest.size() + 2))
                      : readLine(fileno(file.get()));
    } else if (splitStart(source, "fd:", &rest)) {
        fault = readDescriptorNumber(rest, &fd) ? readLine(fd) : Fault(EINVAL, "not a descriptor's number");
    } else if (splitStart(source, "env:", &rest)) {
        fault = readVariable(rest);
    } else {
        return refusal(source, option);
    }
    return fault ? fault.of(std::string(option) + " " + source) : fault;
}

Fault PassPhrase::set(const std::string& phrase, const std::string& origin) {
    origin_ = origin;
    const Fault fault = take(phrase.data(), phrase.size());
    return fault ? fault.of(origin) : fault;
}

// Byte by byte: what follows the line is for another reader of the descriptor.
Fault PassPhrase::readLine(int fd) {
    char line[kCapacity];
    size_t size = 0;
    Fault fault;
    while (size < sizeof line) {
        const ssize_t got = ::read(fd, line + size, 1);
        if (got < 0 && errno == EINTR && !(fault = interruption())) continue;
        if (got < 0 && !fault) fault = Fault(errno, strerror(errno));
        if (got <= 0 || line[size] == '\n') break;
        ++size;
    }
    if (!fault) fault = take(line, size);
    OPENSSL_cleanse(line, sizeof line);
    return fault;
}

Fault PassPhrase::readVariable(const std::string& name) {
    char* value = getenv(name.c_str());
    if (value == nullptr) return {EINVAL, "there is no such variable in the environment"};
    Fault fault = take(value, strlen(value));
    OPENSSL_cleanse(value, strlen(value));
    unsetenv(name.c_str());  // so that programs started later do not inherit it
    return fault;
}

Fault PassPhrase::take(const char* bytes, size_t size) {
    if (size == 0) return {EINVAL, std::string("holds no ") + name_};
    if (size >= kCapacity)
        return {EINVAL,
                std::string("a ") + name_ + " has at most " + std::to_string(kCapacity - 1) + " bytes"};
    memcpy(bytes_, bytes, size);
    size_ = size;
    return {};
}

// On the terminal. libcrypto tries a key in two ways, and would ask again.
int PassPhrase::ask(char* buffer, int size, int isForWriting) {
    if (request_ == eNoAnswer) return -1;
    request_ = eNoTerminal;
    if (!canOpenTerminal()) return -1;
    EVP_set_pw_prompt((std::string("Enter the ") + name_ + ":").c_str());
    const int length = PEM_def_callback(buffer, size, isForWriting, nullptr);
    request_ = length > 0 ? eAnswered : eNoAnswer;
    return length;
}

int PassPhrase::answer(char* buffer, int size, int isForWriting, void* passPhrase) {
    PassPhrase* self = static_cast<PassPhrase*>(passPhrase);
    if (!self->isGiven()) return self->ask(buffer, size, isForWriting);
    self->request_ = eAnswered;
    if (size < 0 || self->size_ > static_cast<size_t>(size)) return -1;
    memcpy(buffer, self->bytes_, self->size_);
    return static_cast<int>(self->size_);
}

Fault PassPhrase::complaint() const {
    const std::string name = name_;
    switch (request_) {
    case eNone:
        return {};
    case eNoTerminal:
        return {EACCES, "needs a " + name +
                            ", and there is no terminal to ask for it; name its source with " + kOption +
                            " (" + kForms + ")"};
    case eNoAnswer:
        return {EACCES, "needs a " + name + ", and none was given"};
    case eAnswered:
        break;
    }
    return {EACCES, "wrong " + name + (isGiven() ? ", which came from " + origin_ : "")};
}
