// The pass phrase of an encrypted private key, or the PIN of a token: from the source on the command line, if one
// is given, else from the terminal.

#pragma once

#include "host/fault.h"

#include <cstddef>
#include <string>

/// Holds the phrase in memory that is wiped at the end. libcrypto asks for it through answer().
class PassPhrase {
public:
    static constexpr size_t kCapacity = 1024;  // bytes, as much as libcrypto asks for

    /// \param name "pass phrase" or "PIN", for messages.
    explicit PassPhrase(const char* name) : name_(name) {}
    ~PassPhrase();
    PassPhrase(const PassPhrase&) = delete;
    PassPhrase& operator=(const PassPhrase&) = delete;

    /// Reads the phrase: the first line of a file ("file:PATH") or of an open descriptor ("fd:N"), or an environment
    /// variable ("env:NAME"), which is removed from the environment.
    /// \param source empty: libcrypto asks on the terminal once it needs the phrase.
    /// \param option where the source comes from, for messages.
    Fault read(const std::string& source, const char* option);

    /// Takes the phrase itself.
    /// \param origin for messages.
    Fault set(const std::string& phrase, const std::string& origin);

    /// Whether a phrase was read or set.
    bool isGiven() const { return !origin_.empty(); }

    /// A pem_password_cb of libcrypto.
    /// \param passPhrase this object.
    /// \return the bytes in `buffer`, or -1.
    static int answer(char* buffer, int size, int isForWriting, void* passPhrase);

    /// Whether libcrypto asked, and got no answer.
    bool isRefused() const { return request_ == eNoTerminal || request_ == eNoAnswer; }

    /// Why libcrypto could not use a key that it asked a phrase for.
    /// \return no fault if it did not ask; else EACCES.
    Fault complaint() const;

private:
    enum Request { eNone, eNoTerminal, eNoAnswer, eAnswered };

    int ask(char* buffer, int size, int isForWriting);
    Fault readLine(int fd);
    Fault readVariable(const std::string& name);
    Fault take(const char* bytes, size_t size);

    char bytes_[kCapacity];
    size_t size_ = 0;
    const char* name_;
    std::string origin_;  // of the phrase; empty: not given
    Request request_ = eNone;
};
