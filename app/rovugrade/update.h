// The order of the stages of a run, and the single exit path for all failures.
//
// A stage that fails has logged at its own place. Nothing that was done on the inactive set is undone: the device
// boots the active set until the boot loader's variable moves.

#pragma once

/// Carries out the update of `upgradeUrl`, in the work directory, which exists, and reports every state.
/// \return the process's exit status: 0 if the run ended with success, 1 after any failure.
[[nodiscard]] int runUpdate();
