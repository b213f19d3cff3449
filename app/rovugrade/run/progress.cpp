#include "run/progress.h"

#include "run/settings.h"
#include "util/file.h"

#include <cstdio>
#include <fcntl.h>

ProgressRecord progress;

namespace {

constexpr size_t kReportSize = 128;  // the longest name and two numbers of eleven characters need less

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

// Written in the work directory and then renamed, so that a reader in another process never sees half a report. Nothing
// is allocated: a run without memory says so, and nothing after the switch can fail for want of it.
void writeProgressFile() {
    const bool downloading = progress.attempts >= 0;
    char report[kReportSize];
    int length = snprintf(report, sizeof report, "\"STATE\":\"%s\",\n", stateName(progress.state));
    length += snprintf(report + length, sizeof report - static_cast<size_t>(length),
                       "\"DL_ATTEMPTS\":\"%d\",\n\"DL_PERCENT\":\"%d\",\n",
                       downloading ? progress.attempts : 0, downloading ? progress.percent : 0);
    const int fd = open(kNextProgressPath, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) return;
    // A full file system must cost the new report, and not the old one too.
    if (writeFd(fd, report, static_cast<uint32_t>(length), true, false) == 0)
        rename(kNextProgressPath, kProgressPath);
}
