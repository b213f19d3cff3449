// The help texts of the launcher: one for the whole and one for each subcommand.
#pragma once

namespace rovusim {

extern const char* const kUsage;
extern const char* const kInitUsage;
extern const char* const kRunUsage;
extern const char* const kRestartUsage;
extern const char* const kShowUsage;
extern const char* const kCallsUsage;
extern const char* const kVolumeUsage;

}  // namespace rovusim
