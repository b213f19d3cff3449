// Programs that this one runs: it waits for them, and they never outlive it.

#pragma once

#include "host/fault.h"

#include <string>
#include <vector>

/// Runs a program in a session of its own, with the file `input` as its input, and its output and errors in the file
/// `output`, which is made or emptied. A signal that asks this program to end is passed on, and the child is then waited
/// for.
/// \param words the command; its first word is a path or is looked up in PATH.
/// \param status receives its exit status, or 128 and the number of the signal that ended it.
/// \return EINTR after such a signal; a fault if the program cannot be started.
Fault runChild(const std::vector<std::string>& words, const std::string& input, const std::string& output,
               int* status);

/// \return the path of a program that was built or installed together with this one, else its name alone.
std::string programBesideThis(const std::string& name);
