// A simulated device with the program on it.

#pragma once

#include "rovu_sim/device_state.h"
#include "support/program.h"

#include <memory>
#include <string>

/// How a run ended, and what it said.
struct Outcome {
    int status = 0;
    std::string out, err;
    std::string messages;  // of the log, each with its newline

    bool said(const std::string& message) const {
        return ("\n" + messages).find("\n" + message + "\n") + 1 != 0;
    }
};

class Device {
public:
    explicit Device(const rovusim::DeviceOptions& options = rovusim::DeviceOptions());

    /// Lets commands of the next run fail, by a rule such as "ubimkvol:1=exit:4".
    void failCall(const std::string& rule) { faults_.insert(faults_.end(), {"--fail", rule}); }

    /// Runs the program, as the last words of the command `wrapper`, which a device of the workstation's programs can
    /// find, until it ends. Long waits take no time.
    Outcome run(const Strings& args, const Strings& wrapper = {});

    /// The same in steps, with waits as long as they are. \param number of a signal.
    void start(const Strings& args);
    void signal(int number) { program_->signal(number); }
    Outcome finish();

    /// Files below the device's /tmp, /app0 and /etc/ssh; one that is not there reads as empty.
    std::string pathOf(const std::string& file) const { return rovusim::outsidePath(directory, file); }
    void put(const std::string& file, const std::string& bytes) { writeWholeFile(pathOf(file), bytes); }
    std::string get(const std::string& file) const { return readWholeFile(pathOf(file)); }
    bool has(const std::string& file) const;

    /// The commands of the last run, as "state: command", and the seconds of its waits, in one state or in all.
    Strings commands() const;
    Strings waits(const std::string& inState = "") const;

    /// The state that the progress file names; empty if there is no such file.
    std::string state() const;

    /// Waits for a state, or for a command, of whose line in commands() `point` is the beginning. \return false if the
    /// program ends before.
    bool reaches(const std::string& point) const;

    /// A volume's bytes; "(none)" if there is no such volume.
    std::string volume(const std::string& name) const;
    std::string bootswitcher() const;

private:
    void launch(const char* option, const Strings& wrapper, const Strings& args);

    ScratchDir scratch_;
    Strings faults_;
    std::unique_ptr<Program> program_;

public:
    const std::string directory = scratch_.path + "/device";
};
