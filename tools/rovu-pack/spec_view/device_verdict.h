// The device's verdict on a spec, from the device's own code: it runs on bytes that were read once, with its log caught.

#pragma once

#include "host/fault.h"
#include "logging/log.h"
#include "run/progress.h"
#include "spec_view/finding.h"
#include "spec_view/spec_view.h"
#include "update_spec/spec.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

/// Takes errors and warnings of the device's code from its construction to the end of its scope.
class DeviceLog {
public:
    DeviceLog();
    ~DeviceLog();
    DeviceLog(const DeviceLog&) = delete;
    DeviceLog& operator=(const DeviceLog&) = delete;

    /// \return the messages since the last call, without the heads of their lines.
    std::vector<std::string> take();

    /// The same, joined to one string.
    std::string takeText();

    /// The first line of the first of them; empty if there is none.
    std::string takeFirstLine();

private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
    size_t taken_ = 0;
    FILE* stream_;
    LOG_Channel* channel_;
};

/// Puts words after a number of an error at the end of a device's message: "... release number: 84 (malformed)".
std::string withMeaning(const std::string& message);

/// Ends a sentence with a message: some of them have a full stop of their own.
std::string withFullStop(const std::string& text);

/// The key that the device holds.
struct SignatureUse {
    std::string publicKey;    // path; empty: not given
    bool isUnsigned = false;  // the device is told not to verify
};

struct DeviceVerdict {
    UpdateState refusedIn = eStateInvalid;  // the state in which every device refuses; eStateInvalid: none
    Findings findings;                      // the errors of the device's code
};

/// Lets the device's code verify, evaluate and read a spec, whose table it fills in. With a public key nothing is evaluated
/// that it does not verify, as on the device. Without one an unsigned spec is evaluated all the same, so that one check
/// shows as much as it can.
/// \return EINTR: a signal has come.
Fault judge(const SignatureUse& use, SpecFile* spec, DeviceVerdict* verdict);

using SpecRecord = std::unique_ptr<UpdateSpecVer1, void (*)(UpdateSpecVer1*)>;

/// Lets the device's code read a record of its own from a spec that has a table since judge() has tried it: the choice of
/// images changes it. Logs nothing but what the device's code logs.
/// \return null if the device refuses the spec.
SpecRecord readRecord(const SpecFile& spec);

/// Whether a device that holds the key `publicPem` takes a spec that has just been made.
/// \param spec the bytes of its file.
/// \return EINVAL with a message that quotes the device; as of doWithinLimits().
Fault tryOnDevice(const std::string& spec, const std::string& publicPem);

/// The same for the text of a spec that will be signed elsewhere: whether a device will take it then.
Fault tryTextOnDevice(const std::string& text);
