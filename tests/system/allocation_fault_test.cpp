// The allocations of the program fail, one per run or from one on, during a complete update.
//
// A normal run of the tests takes a sample. ROVU_ALLOCATION_FAULTS=N/K takes the N-th of K shares of all cases instead,
// and a word such as 120 or 120+ all cases whose names start with it. `tests/system/every-allocation-fault` takes all
// of them.

#include "update_faults.h"

#include <filesystem>
#include <set>
#include <sstream>

namespace {

constexpr char kSampleVariable[] = "ROVU_ALLOCATION_FAULTS";
constexpr unsigned kShares = 401;  // of about 2900 cases

struct Allocation {
    unsigned long number = 0;
    std::string stack;  // comparable within one run
};

class AllocationFaults : public UpdateFaults {
protected:
    // By a path without spaces, at which LD_PRELOAD would end.
    AllocationFaults() : UpdateFaults(rovusim::kHostRoot) {
        std::filesystem::copy(ROVU_FAILING_ALLOCATOR, pristine() + "/app0/allocator.so");
    }

    int run(const Strings& settings, const Strings& args) {
        Strings wrapper = {"env", "LD_PRELOAD=/app0/allocator.so", "ROVU_ALLOCATIONS_OF=" ROVU_PROGRAM};
        wrapper.insert(wrapper.end(), settings.begin(), settings.end());
        return UpdateFaults::run({}, wrapper, args);
    }

    // What is wrong after a run in which they fail.
    Strings violationsOf(const std::string& rule, bool loading) {
        const int status =
            run({"ROVU_FAIL_ALLOCATION=" + rule, "ROVU_FAILED_ALLOCATION=/app0/failed"}, args());
        Strings found = violations(status, loading);
        if (!device().has("/app0/failed")) found.push_back("not reached");
        return found;
    }

    // What a run without a fault allocates.
    std::vector<Allocation> list(const Strings& args) {
        EXPECT_EQ(run({"ROVU_ALLOCATION_LIST=/app0/allocations"}, args), 0);
        std::istringstream lines(device().get("/app0/allocations"));
        std::vector<Allocation> allocations;
        for (Allocation made; lines >> made.number >> made.stack;)
            allocations.push_back(made);
        return allocations;
    }

    std::vector<Allocation> list() { return list(args()); }
};

// The first from each call stack: the others fail in the same code.
std::vector<unsigned long> firstOfEachStack(const std::vector<Allocation>& allocations) {
    std::set<std::string> seen;
    std::vector<unsigned long> numbers;
    for (const Allocation& made : allocations) {
        if (seen.insert(made.stack).second) numbers.push_back(made.number);
    }
    return numbers;
}

TEST_F(AllocationFaults, LeaveADeviceThatBootsAsBeforeOrAsUpdated) {
    if (kSanitized) GTEST_SKIP() << "the sanitizers' runtime has an allocator of its own";
    const Sample sample(kSampleVariable, kShares);
    const size_t atStart = list({"-h"}).size();
    const std::vector<Allocation> allocations = list();
    EXPECT_EQ(violations(0), Strings());
    const std::vector<unsigned long> numbers = firstOfEachStack(allocations);
    ASSERT_GE(numbers.size(), 500U);
    unsigned runs = 0;
    for (const unsigned long number : numbers) {
        for (const char* lasting : {"", "+"}) {
            const std::string rule = std::to_string(number) + lasting;
            if (!sample.has(rule)) continue;
            ++runs;
            report(rule, violationsOf(rule, number <= atStart));
        }
    }
    printf("%u runs of %zu, for %zu allocations from %zu call stacks, %zu of them before main\n", runs,
           2 * numbers.size(), allocations.size(), numbers.size(), atStart);
}

}  // namespace
