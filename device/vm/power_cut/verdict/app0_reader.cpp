#include "verdict/app0_reader.h"

#include "disk.h"
#include "host/child.h"
#include "host/files.h"

#include <cerrno>
#include <cstdio>
#include <functional>

namespace {

// The tools stand in /sbin, which is not in every user's PATH.
constexpr int kCorrected = 1;  // e2fsck's exit status: the journal was replayed, or a count was corrected

const char* const kRefFiles[] = {".ubiRefChk1",     ".ubiRefChk2",     ".ubiRefChk1.new",
                                 ".ubiRefChk2.new", ".ubiRefChk1.bak", ".ubiRefChk2.bak"};

}  // namespace

App0Reader::App0Reader(std::string folder, std::string keyFile)
    : folder_(std::move(folder)), keyFile_(std::move(keyFile)) {}

const App0& App0Reader::read(const std::string& image) {
    const size_t hash = std::hash<std::string>()(image);
    const auto found = known_.find(hash);
    if (found != known_.end()) return found->second;
    return known_.emplace(hash, readImage(image)).first->second;
}

// Dumps the files of the image into the folder.
Fault App0Reader::extract(const std::string& image) const {
    const std::string copy = folder_ + "/app0.img", list = folder_ + "/commands";
    std::string commands = "dump /secrets/rovu/preshared \"" + folder_ + "/preshared\"\n";
    remove((folder_ + "/preshared").c_str());
    for (const char* name : kRefFiles) {
        const std::string dumped = folder_ + "/" + name;
        commands += "dump /" + std::string(name) + " \"" + dumped + "\"\n";
        remove(dumped.c_str());
    }
    int rc = writeSparse(list, commands);
    if (rc == 0) rc = writeSparse(copy, image);
    if (rc != 0) return fileFault(folder_, rc);
    int status = 0;
    const std::string log = folder_ + "/log";
    if (Fault fault = runChild({"/sbin/e2fsck", "-f", "-p", copy}, "/dev/null", log, &status)) return fault;
    if (status != 0 && status != kCorrected) return {EIO, "e2fsck ends with " + std::to_string(status)};
    if (Fault fault = runChild({"/sbin/debugfs", "-f", list, copy}, "/dev/null", log, &status)) return fault;
    return status == 0 ? Fault() : Fault(EIO, "debugfs cannot read it");
}

App0 App0Reader::readImage(const std::string& image) const {
    App0 app0;
    if (Fault fault = extract(image)) app0.fault = fault.message();
    std::string keyFile;
    const bool isKept = !readWholeFile(folder_ + "/preshared", &keyFile) && keyFile == keyFile_;
    if (app0.fault.empty() && !isKept) app0.fault = "the key file is damaged";
    for (int i = 0; i < 2; ++i) {
        const std::string name = kRefFiles[i];
        app0.current[i] = readRef(name);
        app0.next[i] = readRef(name + ".new");
        app0.backup[i] = readRef(name + ".bak");
    }
    return app0;
}

RefFile App0Reader::readRef(const std::string& name) const {
    RefFile file;
    const int rc = readRefFile(&file.list, folder_ + "/" + name);
    file.exists = rc != ENOENT;
    file.isReadable = rc == 0;
    return file;
}
