#include "progress.h"

#include "util/path.h"
#include "work_dir.h"

#include <cstdio>
#include <string>

ProgressRecord progress;

namespace {

// Indexed by UpdateState; other programs know these strings.
const char* const kStateNames[] = {
    "invalid",
    "initializing",
    "downloading spec",
    "parsing spec",
    "checking dependencies",
    "downloading scripts",
    "running preparation scripts",
    "downloading images",
    "running scripts",
    "flashing images",
    "flashing overlay",
    "switching volume",
    "complete",
    "error",
};
static_assert(sizeof kStateNames / sizeof kStateNames[0] == eStateError + 1, "one name for each state");

}  // namespace

const char* stateName(int state) {
    return kStateNames[state];
}

void setState(UpdateState state, Downloader* downloader) {
    progress.state = state;
    progress.lastWrite = time(nullptr);
    if (downloader != nullptr) {
        ProgressFn report(onDownloadProgress);
        downloader->progress.swap(report);
        progress.attempts = 0;
        progress.percent = 0;
    } else {
        progress.attempts = -1;
        progress.percent = -1;
    }
    writeProgressFile();
}

void onDownloadProgress(int attempts, int percent) {
    // Equality, not order: a clock that was set back does not hold reports up.
    const time_t now = time(nullptr);
    if (now == progress.lastWrite) return;
    if (attempts == progress.attempts && percent == progress.percent) return;
    progress.attempts = attempts;
    progress.percent = percent;
    progress.lastWrite = now;
    writeProgressFile();
}

// Written in the work directory and then renamed, so that a reader in another process never sees half a report.
void writeProgressFile() {
    std::string temporary = kWorkDir;
    appendPath(temporary, kNextProgress);
    FILE* file = fopen(temporary.c_str(), "w");
    if (file == nullptr) return;
    const bool downloading = progress.attempts >= 0;
    const int state = fprintf(file, "\"STATE\":\"%s\",\n", stateName(progress.state));
    const int numbers = fprintf(file, "\"DL_ATTEMPTS\":\"%d\",\n\"DL_PERCENT\":\"%d\",\n",
                                downloading ? progress.attempts : 0, downloading ? progress.percent : 0);
    // A full file system must cost the new report, and not the old one too.
    const bool whole = fclose(file) == 0 && state > 0 && numbers > 0;
    if (whole) rename(temporary.c_str(), kProgressPath);
}
