// `rovu-pack check` of a tar: the input is the tar of a spec's scripts and of its image.

#include "fuzz_target.h"
#include "reports/reports.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

constexpr char kSpec[] =
    "{version=1,hardware='RV-20',script_url='http://h/t',script_hash='',script_dlsize=0,'_before',"
    "{type='rootfs',update='mandatory',imsize=129024,dlsize=4096,url='http://h/t',hash='',image='rootfs.img',"
    "image_md5='d41d8cd98f00b204e9800998ecf8427e',preinst='before',postinst='after',version='2.1'},'finish'}";

// In memory where the system has such a folder; gone at the end of the process.
struct Folder {
    std::string path = std::filesystem::exists("/dev/shm") ? "/dev/shm/fuzz-XXXXXX" : "/tmp/fuzz-XXXXXX";

    Folder() {
        require(mkdtemp(path.data()) != nullptr, "a folder can be made");
        setenv("TMPDIR", path.c_str(), 1);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    static FILE* const out = fopen("/dev/null", "w");
    std::ofstream(folder.path + "/t", std::ios::binary)
        .write(charsOf(data), static_cast<std::streamsize>(size));
    std::ofstream(folder.path + "/spec", std::ios::binary) << kSpec;

    CheckOptions options;
    options.spec = folder.path + "/spec";
    options.signatureUse.isUnsigned = true;
    options.files.folder = folder.path;
    options.devices = {{"RV-20", "3.10.49-2", "2.4.1"}};
    CheckResult result;
    require(!checkUpdate(options, &result), "a tar that can be read can be checked");
    printFindings(result.findings, out);
    for (const FleetRow& row : result.fleet)
        printPlan(row, out);
    require(!checkJson(result).empty(), "the result has a form for programs");
    return 0;
}
