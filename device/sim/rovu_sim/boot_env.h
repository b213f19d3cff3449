// The boot loader's environment: a file of NAME=VALUE lines, replaced as a whole.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rovusim {

using BootEnv = std::vector<std::pair<std::string, std::string>>;

/// All variables, in file order. `env` is written on success only.
/// \return 0 or a positive errno value.
int readBootEnv(const std::string& stateDir, BootEnv* env);

/// Reads one variable. `value` is written on success only.
/// \return 0, ENOENT if there is no such variable, or another positive errno value.
int getBootVariable(const std::string& stateDir, const std::string& name, std::string* value);

/// Sets the variable, or removes it if `value` is empty, as the real fw_setenv does.
/// \return 0, EINVAL for an empty name or one with a '=', or another positive errno value.
int setBootVariable(const std::string& stateDir, const std::string& name, const std::string& value);

}  // namespace rovusim
