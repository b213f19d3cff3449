// The launcher's subcommands: each parses its arguments, does its work and returns the exit status.
#pragma once

namespace rovusim {

// `argv[0]` is the subcommand's own name.
int initCommand(int argc, char** argv);
int runCommand(int argc, char** argv);
int restartCommand(int argc, char** argv);
int showCommand(int argc, char** argv);
int callsCommand(int argc, char** argv);
int volumeCommand(int argc, char** argv);

}  // namespace rovusim
