#include "spec_download.h"

#include "downloader/downloader.h"
#include "fetch_file.h"
#include "progress.h"
#include "settings.h"
#include "spec_text.h"
#include "util/path.h"
#include "work_dir.h"

#include <cstring>

lua_State* downloadSpec(const std::string& workDir) {
    std::string specPath = workDir;
    appendPath(specPath, kSpecName);
    // Never dry: without its spec a dry run would have nothing to say.
    Downloader downloader(isVerboseTransfer(), false);
    downloader.setup(upgradeUrl, specPath, kMaxSpecSize, "");
    setState(eStateDownloadingSpec, &downloader);
    if (downloader.run(kDownloadRetries, kDownloadWait) != 0) return nullptr;

    if (keyPath != nullptr && strcmp(keyPath, kNoKey) == 0) keyPath = nullptr;
    SpecBuffer spec;
    if (!readSpecFile(specPath, downloader.received, &spec)) return nullptr;
    if (!authenticateSpec(keyPath, specPath, &spec)) return nullptr;
    return evaluateSpec(&spec);
}
