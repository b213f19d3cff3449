// Signals that ask the program to end: long work stops at its next piece and cleans up after itself.

#pragma once

#include "fault.h"

/// From now on SIGINT, SIGTERM and SIGHUP only note that they came. A second one of a kind ends the program at once.
void noteInterruptions();

/// For long work, to be asked for with each piece.
/// \return EINTR once a signal has come.
Fault interruption();

/// Ends the program by the signal that has come, if one has, as whoever sent it expects.
void endByNotedSignal();
