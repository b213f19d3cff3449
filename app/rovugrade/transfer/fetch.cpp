#include "transfer/fetch.h"

#include "downloader/downloader.h"
#include "run/settings.h"
#include "update_spec/spec_text.h"
#include "util/file.h"

#include <cstring>

int32_t fetchFile(const std::string& url, const std::string& path, uint32_t maxSize, const std::string& hash,
                  UpdateState state, const FileKey& key) {
    Downloader downloader(isVerboseTransfer(), dryRun);
    downloader.setup(url, path, maxSize, hash);
    setState(state, &downloader);
    if (int32_t rc = downloader.run(kDownloadRetries, kDownloadWait); rc != 0) return rc;
    if (!key.present || dryRun) return 0;
    return decryptFile(path.c_str(), key.key, key.iv);
}

lua_State* downloadSpec(const std::string& workDir) {
    std::string specPath = workDir;
    appendPath(specPath, kSpecName);
    // Never dry: a dry run needs the spec.
    Downloader downloader(isVerboseTransfer(), false);
    downloader.setup(upgradeUrl, specPath, kMaxSpecSize, "");
    setState(eStateDownloadingSpec, &downloader);
    if (downloader.run(kDownloadRetries, kDownloadWait) != 0) return nullptr;

    if (keyPath != nullptr && strcmp(keyPath, kNoKey) == 0) keyPath = nullptr;
    SpecBuffer spec(downloader.received);
    if (!readSpecFile(specPath, &spec)) return nullptr;
    if (!authenticateSpec(keyPath, specPath, &spec)) return nullptr;
    return evaluateSpec(&spec);
}
