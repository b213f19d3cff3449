#include "launcher/sandbox/handed_program.h"

#include "launcher/host_program.h"
#include "rovu_sim/sandbox_paths.h"
#include "rovu_sim/shell_words.h"
#include "rovu_sim/text_files.h"

namespace rovusim {
namespace {

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

HandedProgram handProgram(const std::string& path, const std::string& argv0) {
    const std::string folder = kProgramInside, libraries = folder + "/lib";
    HandedProgram program;
    program.path = folder + "/" + baseName(path);
    program.files.emplace_back(path, program.path);
    std::string loader;
    std::string listed;
    // None of a static program, a script, or a program of another processor.
    if (!readOutput("ldd " + quoteForShell(path), &listed)) listed.clear();
    for (std::string line : splitLines(listed)) {
        // "name => /path (address)", or "/path (address)" for the loader
        line.erase(0, line.find_first_not_of(" \t"));
        const size_t arrow = line.find(" => /"), start = line.find('/');
        if (start == std::string::npos) continue;
        const std::string file = line.substr(start, line.find(" (", start) - start);
        if (arrow == std::string::npos) {
            loader = file;
        } else {
            program.files.emplace_back(file, libraries + "/" + line.substr(0, arrow));
        }
    }
    if (loader.empty()) {
        program.command = {program.path, argv0};
        return program;
    }
    // Under the program's name: that is what ps and killall inside know it by.
    const std::string started = folder + "/loader/" + baseName(path);
    program.files.emplace_back(loader, started);
    program.command = {started, started, "--library-path", libraries, "--argv0", argv0, program.path};
    return program;
}

std::string starterOf(const HandedProgram& program) {
    if (program.files.size() < 2) return "";
    std::string script = "#!/bin/sh\nexec";
    for (size_t i = 1; i < program.command.size(); ++i)
        script.append(" ").append(quoteForShell(program.command[i]));
    return script + " \"$@\"\n";
}

}  // namespace rovusim
