// The device's word on a spec, from the device's own code.

#pragma once

#include <string>

/// Lets the device's program verify, evaluate and read a spec's file.
/// \param publicPem the key that the device will hold.
/// \return 0, or EINVAL with the end of a sentence in `*error`, which quotes the device.
int tryOnDevice(const std::string& spec, const std::string& publicPem, std::string* error);
