// One update, from the active set to the restart.

#pragma once

/// Carries out the update of `upgradeUrl`, in the work directory, which exists, and reports every state.
/// \return the process's exit status: 0 if the run ended with success, 1 after any failure.
int runUpdate();
