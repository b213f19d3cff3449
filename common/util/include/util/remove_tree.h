// A folder's removal within the process.

#pragma once

/// Removes the folder at `path` with all that it holds; links are removed, not followed. Allocates nothing, takes no
/// lock and keeps one descriptor open for each level of folders, so a signal handler may call it, and a process that
/// is out of memory. What cannot be removed is left, and the rest goes all the same.
/// \return 0, or the errno value of the last failure.
int removeTree(const char* path);
