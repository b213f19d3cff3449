#include "rovu_sim/volume_store.h"

#include "rovu_sim/device_state.h"
#include "rovu_sim/text_files.h"
#include "util/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>

namespace rovusim {
namespace {

constexpr size_t kChunk = 16384;
constexpr size_t kMaxName = 127;

std::string tablePath(const std::string& stateDir) {
    return stateDir + "/ubi/table";
}

// Held for each change of the table, so that two tools at once do not lose a change.
int lockTable(const std::string& stateDir, zem::Descriptor* lock) {
    zem::Descriptor file(open((stateDir + "/ubi/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    if (flock(file.get(), LOCK_EX) != 0) return errno;
    *lock = std::move(file);
    return 0;
}

// One line: id, name, type, LEBs, state; separated by tabs because a name can hold spaces.
bool parseRow(const std::string& line, Volume* volume) {
    std::vector<std::string> fields;
    size_t start = 0;
    while (start <= line.size()) {
        const size_t end = std::min(line.find('\t', start), line.size());
        fields.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    if (fields.size() != 5) return false;
    volume->id = static_cast<uint32_t>(std::strtoul(fields[0].c_str(), nullptr, 10));
    volume->name = fields[1];
    volume->dynamic = fields[2] == "dynamic";
    volume->lebs = static_cast<uint32_t>(std::strtoul(fields[3].c_str(), nullptr, 10));
    volume->updating = fields[4] == "updating";
    return true;
}

int saveTable(const std::string& stateDir, const std::vector<Volume>& volumes) {
    std::string text;
    for (const Volume& volume : volumes) {
        text += std::to_string(volume.id) + "\t" + volume.name + "\t";
        text += volume.dynamic ? "dynamic\t" : "static\t";
        text += std::to_string(volume.lebs) + "\t" + (volume.updating ? "updating" : "ok") + "\n";
    }
    return replaceTextFile(tablePath(stateDir), text);
}

int markUpdating(const std::string& stateDir, uint32_t id, bool updating) {
    zem::Descriptor lock;
    if (int rc = lockTable(stateDir, &lock); rc != 0) return rc;
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    for (Volume& volume : volumes) {
        if (volume.id == id) volume.updating = updating;
    }
    return saveTable(stateDir, volumes);
}

int appendErased(int fd, uint64_t count) {
    const std::string erased(kChunk, '\xFF');
    while (count > 0) {
        const size_t now = static_cast<size_t>(std::min<uint64_t>(count, erased.size()));
        if (int rc = writeFully(fd, erased.data(), now); rc != 0) return rc;
        count -= now;
    }
    return 0;
}

// Erases the volume and sets the write offset to 0. The file keeps its inode: a program may have it
// open.
int wipe(int fd, const Volume& volume) {
    if (!volume.dynamic) return ftruncate(fd, 0) == 0 ? 0 : errno;
    if (int rc = appendErased(fd, uint64_t{volume.lebs} * kLebBytes); rc != 0) return rc;
    return lseek(fd, 0, SEEK_SET) == 0 ? 0 : errno;
}

int copyBytes(int from, int to, uint64_t count) {
    std::vector<char> buffer(kChunk);
    while (count > 0) {
        const size_t length = static_cast<size_t>(std::min<uint64_t>(count, buffer.size()));
        const ssize_t got = read(from, buffer.data(), length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        if (got == 0) return EIO;
        if (int rc = writeFully(to, buffer.data(), static_cast<size_t>(got)); rc != 0) return rc;
        count -= static_cast<uint64_t>(got);
    }
    return 0;
}

uint32_t lowestFreeId(const std::vector<Volume>& volumes) {
    uint32_t id = 0;
    for (const Volume& volume : volumes) {
        if (volume.id == id) ++id;  // the list is sorted by id
    }
    return id;
}

}  // namespace

int listVolumes(const std::string& stateDir, std::vector<Volume>* volumes) {
    std::string text;
    if (int rc = readTextFile(tablePath(stateDir), &text); rc != 0) return rc;
    std::vector<Volume> all;
    for (const std::string& line : splitLines(text)) {
        Volume volume;
        if (!parseRow(line, &volume)) return EILSEQ;
        struct stat info;
        if (stat(volumePath(stateDir, volume.id).c_str(), &info) != 0) return errno;
        volume.bytes = static_cast<uint64_t>(info.st_size);
        all.push_back(volume);
    }
    std::sort(all.begin(), all.end(), [](const Volume& a, const Volume& b) { return a.id < b.id; });
    volumes->swap(all);
    return 0;
}

int findVolume(const std::string& stateDir, const std::string& name, Volume* volume) {
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    for (const Volume& candidate : volumes) {
        if (candidate.name != name) continue;
        *volume = candidate;
        return 0;
    }
    return ENOENT;
}

int findVolumeById(const std::string& stateDir, uint32_t id, Volume* volume) {
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    for (const Volume& candidate : volumes) {
        if (candidate.id != id) continue;
        *volume = candidate;
        return 0;
    }
    return ENOENT;
}

int freeLebs(const std::string& stateDir, uint32_t* lebs) {
    Device device;
    if (int rc = loadDevice(stateDir, &device); rc != 0) return rc;
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    uint32_t used = 0;
    for (const Volume& volume : volumes)
        used += volume.lebs;
    *lebs = device.totalLebs > used ? device.totalLebs - used : 0;
    return 0;
}

int createVolume(const std::string& stateDir, const std::string& name, bool dynamic, uint64_t bytes,
                 uint32_t id, Volume* made) {
    if (bytes == 0 || name.empty() || name.size() > kMaxName) return EINVAL;
    if (name.find_first_of("\t\n") != std::string::npos) return EINVAL;
    if (id != kAnyId && id >= kMaxVolumes) return EINVAL;
    zem::Descriptor lock;
    if (int rc = lockTable(stateDir, &lock); rc != 0) return rc;
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    for (const Volume& volume : volumes) {
        if (volume.name == name || volume.id == id) return EEXIST;
    }
    uint32_t left = 0;
    if (int rc = freeLebs(stateDir, &left); rc != 0) return rc;
    const uint64_t lebs = (bytes - 1) / kLebBytes + 1;
    if (lebs > left) return ENOSPC;

    Volume volume;
    volume.id = id == kAnyId ? lowestFreeId(volumes) : id;
    if (volume.id >= kMaxVolumes) return ENFILE;
    volume.name = name;
    volume.dynamic = dynamic;
    volume.lebs = static_cast<uint32_t>(lebs);
    volume.bytes = dynamic ? lebs * kLebBytes : 0;
    // Always a new inode: a reader that holds the removed volume open keeps its bytes.
    unlink(volumePath(stateDir, volume.id).c_str());
    zem::Descriptor file(
        open(volumePath(stateDir, volume.id).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!file.isOpen()) return errno;
    if (int rc = wipe(file.get(), volume); rc != 0) return rc;
    volumes.push_back(volume);
    if (int rc = saveTable(stateDir, volumes); rc != 0) return rc;
    if (made != nullptr) *made = volume;
    return 0;
}

int removeVolume(const std::string& stateDir, uint32_t id) {
    zem::Descriptor lock;
    if (int rc = lockTable(stateDir, &lock); rc != 0) return rc;
    std::vector<Volume> volumes;
    if (int rc = listVolumes(stateDir, &volumes); rc != 0) return rc;
    const auto gone = std::remove_if(volumes.begin(), volumes.end(),
                                     [id](const Volume& volume) { return volume.id == id; });
    if (gone == volumes.end()) return ENOENT;
    volumes.erase(gone, volumes.end());
    if (int rc = saveTable(stateDir, volumes); rc != 0) return rc;
    return unlink(volumePath(stateDir, id).c_str()) == 0 ? 0 : errno;
}

int updateVolume(const std::string& stateDir, uint32_t id, int source, uint64_t size, uint64_t stopAfter) {
    Volume volume;
    if (int rc = findVolumeById(stateDir, id, &volume); rc != 0) return rc;
    if (size > uint64_t{volume.lebs} * kLebBytes) return EFBIG;
    zem::Descriptor file(open(volumePath(stateDir, id).c_str(), O_WRONLY | O_CLOEXEC));
    if (!file.isOpen()) return errno;
    if (int rc = markUpdating(stateDir, id, true); rc != 0) return rc;
    if (int rc = wipe(file.get(), volume); rc != 0) return rc;
    if (int rc = copyBytes(source, file.get(), std::min(size, stopAfter)); rc != 0) return rc;
    return stopAfter < size ? 0 : markUpdating(stateDir, id, false);
}

int readVolume(const std::string& stateDir, const std::string& name, std::string* bytes) {
    Volume volume;
    if (int rc = findVolume(stateDir, name, &volume); rc != 0) return rc;
    return readTextFile(volumePath(stateDir, volume.id), bytes);
}

int writeVolume(const std::string& stateDir, const std::string& name, const std::string& bytes) {
    Volume volume;
    if (int rc = findVolume(stateDir, name, &volume); rc != 0) return rc;
    zem::Descriptor memory(memfd_create("volume", MFD_CLOEXEC));
    if (!memory.isOpen()) return errno;
    if (int rc = writeFully(memory.get(), bytes.data(), bytes.size()); rc != 0) return rc;
    if (lseek(memory.get(), 0, SEEK_SET) != 0) return errno;
    return updateVolume(stateDir, volume.id, memory.get(), bytes.size(), bytes.size());
}

}  // namespace rovusim
