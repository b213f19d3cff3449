// A device, an update and the web between them.

#pragma once

#include "support/device.h"
#include "support/update.h"
#include "support/web_server.h"

#include <gtest/gtest.h>
#include <tuple>

/// The rows of a table.
template <typename... Columns>
using Table = std::vector<std::tuple<Columns...>>;

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
    explicit World(const std::string& steps = "_prepare before kernel between rootfs",
                   const rovusim::DeviceOptions& options = rovusim::DeviceOptions());

    void set(const Field& field);

    /// Writes the update's files and its signed spec, or another one as it stands.
    void publish(const std::string& spec = "");
    std::string spec() const { return readWholeFile(web.directory() + "/spec"); }

    /// Runs the program on the spec, after publish() if nothing was published yet.
    /// \param options with blanks between.
    Outcome run(const std::string& options = "", const Strings& wrapper = {});
    Strings args(const std::string& options);

    /// What must hold after each run that did not switch over: the boot variable and the reference files are
    /// as they were, and so is the active set.
    void expectUntouchedBoot() const;

    /// The volumes of the inactive set that changed: k, r and d for what the update brings to them, ? else.
    std::string written() const;

    /// Names of the scripts that ran, with blanks between.
    std::string trace() const;

    const std::string kernel = imageBytes("4.1", 150000);
    const std::string rootfs = imageBytes("3.0.7", 260000);
    WebServer web;
    Device device;
    Update update;

private:
    std::map<std::string, std::string> before_;
    bool published_ = false;
};

Strings split(const std::string& text, char separator);

/// The progress file's text in a state without a transfer.
std::string progressText(const std::string& state);

/// A reference file's text, with the checksum of its lines.
std::string referenceText(const std::string& lines);
