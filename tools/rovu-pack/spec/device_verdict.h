// The device's verdict on a spec, from the device's own code: it runs on bytes that were read once, with
// its log caught.

#pragma once

#include "fault.h"
#include "finding.h"
#include "progress.h"
#include "spec.h"
#include "spec_file.h"

#include <memory>
#include <string>

/// What is known of the key that the device holds.
struct SignatureUse {
    std::string publicKey;    // path; empty: not given
    bool isUnsigned = false;  // the device is told not to verify
};

struct DeviceVerdict {
    UpdateState refusedIn = eStateInvalid;  // the state in which every device refuses; eStateInvalid: none
    Findings findings;                      // what the device's code complains of
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
