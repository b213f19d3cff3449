// The order in which a spec is taken in: nothing is evaluated that was not verified first.

#include "load_spec.h"

#include "downloader/downloader.h"
#include "fetch_file.h"
#include "progress.h"
#include "settings.h"
#include "spec_text.h"
#include "util/path.h"

#include <cstring>

lua_State* loadSpec(const std::string& workDir) {
    std::string specPath = workDir;
    appendPath(specPath, "rovu.lua");
    // Never dry: without its spec a dry run would have nothing to say.
    Downloader downloader(isVerboseTransfer(), false);
    downloader.setup(upgradeUrl, specPath, kMaxSpecSize, "");
    setState(eStateDownloadingSpec, &downloader);
    if (downloader.run(kDownloadRetries, kDownloadWait) != 0) return nullptr;

    if (keyPath != nullptr && strcmp(keyPath, kNoKey) == 0) keyPath = nullptr;
    SpecBuffer spec;
    if (!readSpecFile(specPath, downloader.received, &spec)) return nullptr;
    if (!authenticateSpec(specPath, &spec)) return nullptr;
    return evaluateSpec(&spec);
}
