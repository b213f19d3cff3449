// A scratch folder, and a shell in it that knows the program as $PACK, its build with a key as $BUILD, and its check of a
// spec that is not signed as $CHECK.

#pragma once

#include "support/program.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

/// A spec without files.
constexpr char kSmallSpec[] =
    "{ version = 1, hardware = 'RV-20', script_url = '', script_hash = '', script_dlsize = 0, 'exit_success' }\n";

/// A manifest of the images k.img and r.img.
constexpr char kTwoImages[] =
    "{ version = 1, hardware = 'RV-20', clone_overlay = 1,\n"
    "  { type = 'kernel', update = 'mandatory', version = '2.0', image = 'k.img' },\n"
    "  { type = 'rootfs', update = 'mandatory', version = '2.0', image = 'r.img' } }\n";

class PackShell : public ::testing::Test {
protected:
    /// Runs a line of shell, for a minute at most. \return its exit status.
    int shell(const std::string& line) const {
        put("said", "");
        return Program({"timeout", "-s", "KILL", "60", "/bin/sh", "-c", start() + line}, pathOf("said"),
                       pathOf("said"))
            .wait();
    }

    /// Runs the program. \return its exit status.
    int pack(const std::string& arguments) const { return shell("$PACK " + arguments); }

    /// What the last line printed, errors included.
    std::string said() const { return read("said"); }

    std::string pathOf(const std::string& name) const { return scratch.path + "/" + name; }
    std::string read(const std::string& name) const { return readWholeFile(pathOf(name)); }
    void put(const std::string& name, const std::string& bytes) const { writeWholeFile(pathOf(name), bytes); }
    bool exists(const std::string& name) const { return std::filesystem::exists(pathOf(name)); }

    /// What each line of shell begins with.
    std::string start() const {
        return "cd '" + scratch.path +
               "' && export PACK='" ROVU_PACK_PROGRAM "' && export CHECK=\"$PACK check --unsigned\" "
               "BUILD=\"$PACK build --key keys/private.pem --base-url http://h\" && ";
    }

    const ScratchDir scratch;
};
