// Reads and writes whole files. Every fault names the file and the system's reason.

#pragma once

#include "host/fault.h"
#include "host/handles.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

/// \return "PATH: what the system says about `code`".
Fault fileFault(const std::string& path, int code);

/// Opens the regular file at `path` for reading; a link is followed. Never waits, as the open of a FIFO would.
/// \param size receives its bytes. Both are written on success only.
/// \return EINVAL for anything but a regular file, with a message that says what it is.
Fault openRegularFile(const std::string& path, File* file, uint64_t* size);

/// Opens a regular file, or a pipe without a name, which a shell makes of "<(COMMAND)". Never waits for another program to
/// open what it is, as the open of a FIFO would.
/// \return EINVAL as openRegularFile().
Fault openFileOrPipe(const std::string& path, File* file);

/// \return a fault as of openRegularFile() if what is at `path` is not a regular file, without opening it.
Fault requireRegularFile(const std::string& path, uint64_t* size);

/// Reads the regular file at `path` to its end into `*bytes`, which is written on success only.
/// \return EINVAL for anything but a regular file.
Fault readWholeFile(const std::string& path, std::string* bytes);

/// Makes or replaces the file at `path` in one step: a reader sees the old bytes or all of the new ones. They
/// are on the disk before the name moves. A failure leaves the old file as it was.
/// \param mode permissions of the new file, which the process's mask still narrows.
Fault replaceFile(const std::string& path, const std::string& bytes, mode_t mode);

/// Where a link leads: it is the file that replaceFile() is to replace, not the link.
/// \param mode receives its permissions.
Fault resolveFile(const std::string& path, std::string* real, mode_t* mode);

/// Makes a file that must not exist yet; one that could not be written whole is removed again.
/// \return EEXIST, with nothing touched, if it does.
Fault createFile(const std::string& path, const std::string& bytes, mode_t mode);
