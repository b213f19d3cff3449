// Shell command lines: the only way to run external programs.
//
// runCommand() runs a finished line, runCommandF() formats one, runStep() is for a line that is run for its effect.

#pragma once

#include <cstdint>

/// Runs `command` with /bin/sh and waits for it, without a time limit.
///
/// With `outSize` 0 the command has the caller's own standard streams, and `out` and `eof` are not
/// touched. Otherwise its standard output is read, in one piece, until `outSize` - 1 bytes have come or
/// the output has ended; `out` then holds these bytes, verbatim, and a NUL. What the command writes after
/// them is not read, and may cost it a SIGPIPE.
///
/// \param exitStatus may be null; receives the exit code, or -1 if the command did not exit by itself.
/// \param eof may be null; with captured output only: not 0 if the end of the output was met, 0 if the
///            read stopped because the buffer was full.
/// \return the number of bytes in `out`, without the NUL; or, with `exitStatus` untouched, a negative
///         value if the command could not be started or waited for: the negated errno value, or -1 if
///         there was none. Whether an exit status means success is the caller's to judge.
/// See POSIX system(), popen().
int32_t runCommand(const char* command, char* out, uint32_t outSize, int* exitStatus, int* eof);

/// Formats a line of at most 255 characters, as printf does, and runs it with runCommand().
///
/// Nothing is escaped: a format puts each string between single quotes, and the string goes there unchanged.
/// \return what runCommand() returned; or EOVERFLOW, which is positive, if the line did not fit: nothing
///         has run then, and `out`, `exitStatus` and `eof` are untouched.
int32_t runCommandF(char* out, uint32_t outSize, int* exitStatus, int* eof, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/// Formats a line as runCommandF() does and runs it with the caller's own standard streams.
/// \return 0 if the command ran and exited with 0; the negated result of runCommandF() if that was not 0; otherwise the
///         exit status, which is -1 if the command did not exit by itself.
[[nodiscard]] int runStep(const char* format, ...) __attribute__((format(printf, 1, 2)));
