#include "fetch_file.h"

#include "file_decryption.h"
#include "settings.h"

int32_t fetchFile(const std::string& url, const std::string& path, uint32_t maxSize, const std::string& hash,
                  UpdateState state, const FileKey& key) {
    Downloader downloader(isVerboseTransfer(), dryRun);
    downloader.setup(url, path, maxSize, hash);
    setState(state, &downloader);
    if (int32_t rc = downloader.run(kDownloadRetries, kDownloadWait); rc != 0) return rc;
    if (!key.present || dryRun) return 0;
    return decryptFile(path.c_str(), key.key, key.iv);
}
