#include "verdict/app0_reader.h"

#include "disk.h"
#include "files.h"

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
    : folder_(std::move(folder)), keyFile_(std::move(keyFile)) {
    std::string commands = "dump /secrets/rovu/preshared \"" + folder_ + "/preshared\"\n";
    for (const char* name : kRefFiles)
        commands += "dump /" + std::string(name) + " \"" + folder_ + "/" + name + "\"\n";
    writeFileOrThrow(folder_ + "/commands", commands);
}

const App0& App0Reader::read(const std::string& image) {
    const size_t hash = std::hash<std::string>()(image);
    const auto found = known_.find(hash);
    if (found != known_.end()) return found->second;
    return known_.emplace(hash, readImage(image)).first->second;
}

App0 App0Reader::readImage(const std::string& image) const {
    const std::string copy = folder_ + "/app0.img";
    writeFileOrThrow(copy, image);
    App0 app0;
    const int checked = runProgram({"/sbin/e2fsck", "-f", "-p", copy}, folder_ + "/e2fsck.log");
    if (checked != 0 && checked != kCorrected) app0.fault = "e2fsck ends with " + std::to_string(checked);

    for (const char* name : kRefFiles)
        remove((folder_ + "/" + name).c_str());
    remove((folder_ + "/preshared").c_str());
    if (runProgram({"/sbin/debugfs", "-f", folder_ + "/commands", copy}, folder_ + "/debugfs.log") != 0)
        app0.fault = "debugfs cannot read it";
    std::string keyFile;
    if (readBytes(folder_ + "/preshared", {}, &keyFile) != 0 || keyFile != keyFile_)
        app0.fault = "the key file is damaged";
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
