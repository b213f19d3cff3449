// A complete update with a fault, again and again on one device, and what must hold after each run.

#pragma once

#include "world.h"

#ifdef __SANITIZE_ADDRESS__
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/// The cases of a loop over faults that a run of the tests takes.
class Sample {
public:
    /// One of `shares` shares, unless the environment's `variable` chooses others: N/K is the N-th of K shares, and
    /// another word all cases whose names start with it.
    Sample(const char* variable, unsigned shares);

    /// By the name itself, not by its place in a list that may differ from run to run.
    bool has(const std::string& name) const;

private:
    unsigned share_ = 1;
    unsigned shares_;
    std::string start_;  // of the names to take, instead of a share
};

/// One update and one device, which is put back to its first state before each run.
class UpdateFaults : public testing::Test {
protected:
    /// \param root of the device, see rovusim::Device::root
    explicit UpdateFaults(const std::string& root = "");

    /// Runs the program with options of the simulator, as the last words of the command `wrapper`.
    /// \return its exit status; 128 and the signal's number if a signal ended it, which it does after two minutes.
    int run(const Strings& simOptions, const Strings& wrapper, const Strings& args);

    /// The program's arguments for the complete update.
    const Strings& args() const { return args_; }

    /// What no fault may do to a device, however often it comes.
    Strings dangers() const;

    /// What is wrong after a run with one fault that ended with `status`. \param loading if the fault came before
    /// main, where the dynamic loader may end the process in its own way.
    Strings violations(int status, bool loading = false) const;

    /// Reports the violations of one case, each on a line of its own, for the script that adds them up.
    void report(const std::string& name, const Strings& violations) const;

    const Device& device() const { return device_; }
    /// What the device is put back to.
    std::string pristine() const { return scratch_.path + "/pristine"; }
    std::string scratch() const { return scratch_.path; }
    std::string errors() const { return readWholeFile(err()); }
    bool outContains(const std::string& part) const {
        return readWholeFile(out()).find(part) != std::string::npos;
    }
    bool hasStarted() const { return device_.has("/tmp/rovu.progress"); }

private:
    std::string out() const { return scratch_.path + "/out"; }
    std::string err() const { return scratch_.path + "/err"; }
    Strings activeSet() const;
    bool isSwitched() const { return device_.bootswitcher() == "0A0A01"; }
    bool isNewSetComplete() const;
    bool isMerged(const std::string& reference) const;
    std::string nameOf(const std::string& reference) const;

    const ScratchDir scratch_;
    World world_;
    const Device& device_ = world_.device;
    Strings args_, active_;
    std::string oldFirst_, oldSecond_;
    Strings merged_;  // with the first old file and, should that not be readable, with the second
};
