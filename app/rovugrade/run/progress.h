// The report of a run for other programs: its state, and the progress of its download.

#pragma once

#include "downloader/downloader.h"

#include <ctime>

/// The states of a run. Each has its name in the progress file.
enum UpdateState {
    eStateInvalid,  // never entered
    eStateInitializing,
    eStateDownloadingSpec,
    eStateParsingSpec,
    eStateCheckingDependencies,
    eStateDownloadingScripts,
    eStateRunningPreparationScripts,
    eStateDownloadingImages,
    eStateRunningScripts,
    eStateFlashingImages,
    eStateFlashingOverlay,
    eStateSwitchingVolume,
    eStateComplete,
    eStateError,
};

/// The name of an UpdateState in the progress file.
const char* stateName(int state);

struct ProgressRecord {
    time_t lastWrite;  // the second of the last setState(), or of the last download report that was taken
    int state;
    int attempts;  // -1 in a state without a download
    int percent;   // -1 in a state without a download
};

/// The report of this run; all zero before the first setState().
extern ProgressRecord progress;

/// Enters a state and writes the progress file.
///
/// `downloader`, which stays the caller's, is the transfer that the state will run: it is made to report
/// here, through a callable that refers to nothing of the caller's. Null if the state has none.
/// A report that cannot be written is lost, and never fails a run.
void setState(UpdateState state, Downloader* downloader);

/// Takes a report of a running transfer; see ProgressFn. The file is written at most once per second, the
/// second of setState() included, and only if something has changed.
void onDownloadProgress(int attempts, int percent);

/// Replaces the progress file by a report of `progress`: a reader sees the old file or the new one.
void writeProgressFile();
