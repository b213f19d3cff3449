// Complete updates under valgrind, and with fewer allocations than they need.

#include "update_faults.h"

#include <filesystem>
#include <set>

// On a device of the workstation's programs, among which are valgrind and env.
class Memory : public UpdateFaults {
protected:
    Memory() : UpdateFaults(rovusim::kHostRoot) {}
};

TEST_F(Memory, CompleteUpdateLeaksNothingAndReadsNothingUnset) {
    const Strings valgrind = {"valgrind",          "--quiet",
                              "--vgdb=no",         "--error-exitcode=99",
                              "--leak-check=full", "--errors-for-leak-kinds=definite,possible"};
    Strings verbose = args();
    verbose.insert(verbose.begin(), "-vv");
    EXPECT_EQ(run({}, valgrind, verbose), 0) << errors();
    EXPECT_EQ(device().bootswitcher(), "0A0A01");
}

// After so many allocations there are no more.
TEST_F(Memory, RunningOutOfItLeavesADeviceThatBootsAsBefore) {
    std::filesystem::copy(ROVU_FAILING_ALLOCATOR,
                          pristine() + "/app0/allocator.so");  // a path without spaces
    std::set<int> ends;
    for (unsigned long most = 0; ends.count(0) == 0 && most < 100000; most += most / 16 + 1) {
        SCOPED_TRACE(most);
        const Strings limited = {"env", "LD_PRELOAD=/app0/allocator.so",
                                 "ROVU_ALLOCATIONS=" + std::to_string(most)};
        const int status = run({}, limited, args());
        EXPECT_EQ(violations(status), Strings()) << errors();
        ends.insert(status);
    }
    EXPECT_EQ(ends, (std::set<int>{0, 1}));
}
