// Tars through libarchive. The writer fixes every header field that differs between machines; the format is
// plain ustar, which has no extended headers that could carry more.

#include "tar_archive.h"

#include "digests.h"
#include "files.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <sys/stat.h>

namespace {

constexpr size_t kChunk = 262144;
constexpr size_t kReadBlock = 65536;
constexpr int kTarBlock = 10240;  // bytes to a multiple of which a tar is filled up, as tar itself does
constexpr mode_t kPlainMode = 0644;
constexpr mode_t kExecutableMode = 0755;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;
using Archive = std::unique_ptr<archive, int (*)(archive*)>;
using Entry = std::unique_ptr<archive_entry, void (*)(archive_entry*)>;

int archiveError(const std::string& path, archive* handle, std::string* error) {
    const char* text = archive_error_string(handle);
    *error = path + ": " + (text == nullptr ? "libarchive gives no reason" : text);
    const int code = archive_errno(handle);
    return code > 0 ? code : EIO;
}

int openRegular(const std::string& path, File* file, uint64_t* size, std::string* error) {
    file->reset(fopen(path.c_str(), "rbe"));
    if (*file == nullptr) return fileError(path, errno, error);
    struct stat status;
    if (fstat(fileno(file->get()), &status) != 0) return fileError(path, errno, error);
    if (!S_ISREG(status.st_mode)) {
        *error = path + ": not a regular file";
        return EINVAL;
    }
    *size = static_cast<uint64_t>(status.st_size);
    return 0;
}

int writeHeader(archive* tar, const std::string& path, const TarInput& input, uint64_t size, time_t mtime,
                std::string* error) {
    const Entry entry(archive_entry_new(), archive_entry_free);
    if (entry == nullptr) return fileError(path, ENOMEM, error);
    archive_entry_set_pathname(entry.get(), input.member.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), input.executable ? kExecutableMode : kPlainMode);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    archive_entry_set_mtime(entry.get(), mtime, 0);
    archive_entry_set_uid(entry.get(), 0);
    archive_entry_set_gid(entry.get(), 0);
    if (archive_write_header(tar, entry.get()) == ARCHIVE_OK) return 0;
    return archiveError(path, tar, error);
}

int writeMember(archive* tar, const std::string& path, const TarInput& input, time_t mtime,
                WorkProgress* progress, std::string* error) {
    File file(nullptr, fclose);
    uint64_t left = 0;
    if (int rc = openRegular(input.source, &file, &left, error); rc != 0) return rc;
    if (int rc = writeHeader(tar, path, input, left, mtime, error); rc != 0) return rc;
    std::vector<char> chunk(kChunk);
    while (const size_t got = fread(chunk.data(), 1, chunk.size(), file.get())) {
        if (got > left) break;  // it has grown since the header was written
        if (archive_write_data(tar, chunk.data(), got) != static_cast<la_ssize_t>(got))
            return archiveError(path, tar, error);
        left -= got;
        reportWork(progress, got);
    }
    if (ferror(file.get()) != 0) return fileError(input.source, errno, error);
    if (left == 0 && feof(file.get()) != 0) return 0;
    *error = input.source + ": its size changed while it was read";
    return EAGAIN;
}

// Opens the tar at `path` for reading, whatever compressed it.
int openTar(const std::string& path, archive* tar, std::string* error) {
    archive_read_support_filter_all(tar);
    archive_read_support_format_tar(tar);
    if (archive_read_open_filename(tar, path.c_str(), kReadBlock) == ARCHIVE_OK) return 0;
    return archiveError(path, tar, error);
}

TarMember::Type typeOf(archive_entry* entry) {
    if (archive_entry_hardlink(entry) != nullptr) return TarMember::eHardLink;
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        return TarMember::eFile;
    case AE_IFDIR:
        return TarMember::eDirectory;
    case AE_IFLNK:
        return TarMember::eSymbolicLink;
    default:
        return TarMember::eOther;
    }
}

TarMember describe(archive_entry* entry) {
    TarMember member = {"", typeOf(entry), static_cast<uint64_t>(archive_entry_size(entry)), ""};
    if (const char* name = archive_entry_pathname(entry)) member.name = name;
    const char* target =
        member.type == TarMember::eHardLink ? archive_entry_hardlink(entry) : archive_entry_symlink(entry);
    if (target != nullptr) member.linkTarget = target;
    return member;
}

using TakeMember = std::function<int(const TarMember&, archive*)>;

// Calls `take` for each member, with the archive at its data.
int walkTar(const std::string& path, const TakeMember& take, std::string* error) {
    const Archive tar(archive_read_new(), archive_read_free);
    if (tar == nullptr) return fileError(path, ENOMEM, error);
    if (int rc = openTar(path, tar.get(), error); rc != 0) return rc;
    archive_entry* entry = nullptr;
    for (;;) {
        const int rc = archive_read_next_header(tar.get(), &entry);
        if (rc == ARCHIVE_EOF) return 0;
        if (rc != ARCHIVE_OK && rc != ARCHIVE_WARN) return archiveError(path, tar.get(), error);
        if (int taken = take(describe(entry), tar.get()); taken != 0) return taken;
    }
}

// The data of the member at which the archive stands.
int digestMember(const std::string& path, archive* tar, WorkProgress* progress, Digest* digest,
                 std::string* error) {
    std::vector<char> chunk(kChunk);
    for (;;) {
        const la_ssize_t got = archive_read_data(tar, chunk.data(), chunk.size());
        if (got < 0) return archiveError(path, tar, error);
        if (got == 0) return 0;
        digest->add(chunk.data(), static_cast<size_t>(got));
        reportWork(progress, static_cast<uint64_t>(got));
    }
}

}  // namespace

int writeTar(const std::string& path, const std::vector<TarInput>& inputs, time_t mtime,
             WorkProgress* progress, std::string* error) {
    const Archive tar(archive_write_new(), archive_write_free);
    if (tar == nullptr) return fileError(path, ENOMEM, error);
    archive_write_set_format_ustar(tar.get());
    archive_write_add_filter_none(tar.get());
    archive_write_set_bytes_per_block(tar.get(), kTarBlock);
    archive_write_set_bytes_in_last_block(tar.get(), kTarBlock);
    if (archive_write_open_filename(tar.get(), path.c_str()) != ARCHIVE_OK)
        return archiveError(path, tar.get(), error);
    for (const TarInput& input : inputs) {
        if (int rc = writeMember(tar.get(), path, input, mtime, progress, error); rc != 0) return rc;
    }
    return archive_write_close(tar.get()) == ARCHIVE_OK ? 0 : archiveError(path, tar.get(), error);
}

int listTar(const std::string& path, std::vector<TarMember>* members, std::string* compression,
            std::string* error) {
    members->clear();
    compression->clear();
    const TakeMember take = [members, compression](const TarMember& member, archive* tar) {
        members->push_back(member);
        if (archive_filter_code(tar, 0) != ARCHIVE_FILTER_NONE) *compression = archive_filter_name(tar, 0);
        return 0;
    };
    return walkTar(path, take, error);
}

int digestTarMember(const std::string& path, const std::string& name, WorkProgress* progress,
                    std::string* md5, std::string* error) {
    bool found = false;
    const TakeMember take = [&](const TarMember& member, archive* tar) {
        if (member.name != name || member.type != TarMember::eFile) return 0;
        found = true;
        Digest digest(EVP_md5());
        const int rc = digestMember(path, tar, progress, &digest, error);
        *md5 = digest.hex();
        return rc;
    };
    if (int rc = walkTar(path, take, error); rc != 0) return rc;
    if (found) return 0;
    *error = path + ": no file \"" + name + "\" in it";
    return ENOENT;
}
