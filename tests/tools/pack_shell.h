// A scratch folder, and a shell in it that knows the program as $PACK.

#pragma once

#include "support/program.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <string>

class PackShell : public ::testing::Test {
protected:
    /// Runs a line of shell. \return its exit status.
    int shell(const std::string& line) const {
        const std::string start = "cd '" + scratch_.path + "' && PACK='" + ROVU_PACK_PROGRAM + "' && ";
        const std::string outcome = scratch_.path + "/said";
        writeWholeFile(outcome, "");
        return Program({"/bin/sh", "-c", start + line}, outcome, outcome).wait();
    }

    /// What the last line printed, errors included.
    std::string said() const { return read("said"); }

    std::string pathOf(const std::string& name) const { return scratch_.path + "/" + name; }
    std::string read(const std::string& name) const { return readWholeFile(pathOf(name)); }
    void put(const std::string& name, const std::string& bytes) const { writeWholeFile(pathOf(name), bytes); }

private:
    const ScratchDir scratch_;
};
