// A device, an update and the web between them.

#pragma once

#include "support/device.h"
#include "support/update.h"
#include "support/web_server.h"

#include <gtest/gtest.h>

/// A field of the spec or, if it is named, of an image.
struct Field {
    std::string image, key, value;
};

/// A device that runs set 0 and has reference files, a signed and encrypted update for it, and the server
/// that offers it.
///
/// The update takes the steps that are named: "kernel" and "rootfs" are images, all else are scripts. It
/// clones the overlay. Each script adds its name to the trace, and so do those around the kernel image.
class World {
public:
    static Strings allSteps() { return {"_prepare", "before", "kernel", "between", "rootfs"}; }
    explicit World(const Strings& steps = allSteps(),
                   const rovusim::DeviceOptions& options = rovusim::DeviceOptions());

    void set(const Field& field);

    /// Writes the update's files and its signed spec, or these bytes as the spec.
    void publish(const std::string& spec = "");
    std::string spec() const { return readWholeFile(web.directory() + "/spec"); }

    /// Runs the program on the spec, after publish() if nothing was published yet.
    Outcome run(const Strings& options = {}, const Strings& wrapper = {});
    Strings args(const Strings& options = {});

    /// What must hold after each run that did not switch over: the boot variable, the reference files and the
    /// active set are unchanged.
    void expectUntouchedBoot() const;

    /// The volumes of the inactive set that changed; with a "?" if they hold other bytes than the update brings.
    Strings written() const;

    /// Names of the scripts that ran, in order.
    Strings trace() const;

    const std::string kernel = imageBytes("4.1", 150000);
    const std::string rootfs = imageBytes("3.0.7", 260000);
    WebServer web;
    Device device;
    Update update;

private:
    std::map<std::string, std::string> before_;
    bool published_ = false;
};

/// The pieces of `list`, without an empty one at its end.
Strings split(const std::string& list, char separator);

/// The progress file's contents in a state without a transfer.
std::string progressFile(const std::string& state);
