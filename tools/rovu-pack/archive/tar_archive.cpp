// The writer fixes every header field that differs between workstations; the format is plain ustar, which
// has no extended headers that could carry more.

#include "archive/tar_archive.h"

#include "archive/tar_source.h"
#include "host/files.h"
#include "host/handles.h"
#include "host/leftovers.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <sys/stat.h>

namespace {

constexpr size_t kChunk = 262144;
constexpr size_t kReadBlock = 65536;
constexpr int kTarBlock = 10240;  // bytes to a multiple of which a tar is filled up, as tar itself does
constexpr int kWriteBlock = 25 * kTarBlock;
constexpr mode_t kPlainMode = 0644;
constexpr mode_t kExecutableMode = 0755;

using Reader = Handle<archive, archive_read_free>;
using Writer = Handle<archive, archive_write_free>;
using Entry = Handle<archive_entry, archive_entry_free>;

// `path` may be empty: whoever gets the fault knows the file.
Fault archiveFault(const std::string& path, archive* handle) {
    const char* text = archive_error_string(handle);
    const int code = archive_errno(handle);
    return {code > 0 ? code : EIO,
            (path.empty() ? "" : path + ": ") + (text == nullptr ? "libarchive gives no reason" : text)};
}

// Where a tar goes, and the first fault there: libarchive knows only that there was one.
struct TarOutput {
    const ByteSink& sink;
    Fault fault;
};

la_ssize_t writeBlock(archive* /*tar*/, void* data, const void* bytes, size_t size) {
    auto* output = static_cast<TarOutput*>(data);
    if (output->fault) return -1;
    output->fault = output->sink(static_cast<const char*>(bytes), size);
    return output->fault ? -1 : static_cast<la_ssize_t>(size);
}

Fault outputFault(archive* tar, const TarOutput& output) {
    return output.fault ? output.fault : archiveFault("tar", tar);
}

Fault writeHeader(archive* tar, const TarInput& input, uint64_t size, time_t mtime) {
    const Entry entry(archive_entry_new());
    if (entry == nullptr) return fileFault(input.source, ENOMEM);
    archive_entry_set_pathname(entry.get(), input.member.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), input.executable ? kExecutableMode : kPlainMode);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(size));
    archive_entry_set_mtime(entry.get(), mtime, 0);
    archive_entry_set_uid(entry.get(), 0);
    archive_entry_set_gid(entry.get(), 0);
    if (archive_write_header(tar, entry.get()) == ARCHIVE_OK) return {};
    return archiveFault(input.source, tar);
}

Fault writeMember(archive* tar, const TarOutput& output, const TarInput& input, time_t mtime,
                  const InputSink& read) {
    File file;
    uint64_t left = 0;
    if (Fault fault = openRegularFile(input.source, &file, &left)) return fault;
    if (Fault fault = writeHeader(tar, input, left, mtime)) return output.fault ? output.fault : fault;
    std::vector<char> chunk(kChunk);
    while (const size_t got = fread(chunk.data(), 1, chunk.size(), file.get())) {
        if (got > left) break;  // it has grown since the header was written
        if (archive_write_data(tar, chunk.data(), got) != static_cast<la_ssize_t>(got))
            return outputFault(tar, output);
        left -= got;
        read(input, chunk.data(), got);
        if (Fault fault = interruption()) return fault;
    }
    if (ferror(file.get()) != 0) return fileFault(input.source, errno);
    if (left == 0 && feof(file.get()) != 0) return {};
    return {EAGAIN, input.source + ": its size changed while it was read"};
}

// Opens the tar at `path` for reading, whatever compressed it.
Fault openTar(const std::string& path, archive* tar) {
    archive_read_support_filter_all(tar);
    archive_read_support_format_tar(tar);
    if (archive_read_open_filename(tar, path.c_str(), kReadBlock) == ARCHIVE_OK) return {};
    return archiveFault(path, tar);
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
    TarMember member = {"", typeOf(entry), static_cast<uint64_t>(archive_entry_size(entry)), "",
                        archive_entry_sparse_count(entry) > 0};
    if (const char* name = archive_entry_pathname(entry)) member.name = name;
    // A directory's name ends in a slash there, and has none where someone asks for it.
    while (member.type == TarMember::eDirectory && member.name.size() > 1 && member.name.back() == '/')
        member.name.pop_back();
    const char* target =
        member.type == TarMember::eHardLink ? archive_entry_hardlink(entry) : archive_entry_symlink(entry);
    if (target != nullptr) member.linkTarget = target;
    return member;
}

using TakeMember = std::function<Fault(const TarMember&, archive*)>;

// Calls `take` for each member of the open archive, with the archive at its data.
Fault walkMembers(const std::string& path, archive* tar, const TakeMember& take) {
    archive_entry* entry = nullptr;
    for (;;) {
        const int rc = archive_read_next_header(tar, &entry);
        if (rc == ARCHIVE_EOF) return {};
        if (rc != ARCHIVE_OK && rc != ARCHIVE_WARN) return archiveFault(path, tar);
        if (Fault fault = take(describe(entry), tar)) return fault;
    }
}

// A file that libarchive reads, and the first fault there: libarchive knows only that there was one.
struct TarInputStream {
    TarSource source;
    Fault fault;
};

la_ssize_t readBlock(archive* /*tar*/, void* data, const void** block) {
    auto* input = static_cast<TarInputStream*>(data);
    const unsigned char* bytes = nullptr;
    size_t size = 0;
    if (!input->fault) input->fault = input->source.next(&bytes, &size);
    *block = bytes;
    return input->fault ? -1 : static_cast<la_ssize_t>(size);
}

Fault openStream(TarInputStream* input, archive* tar) {
    archive_read_support_filter_all(tar);
    archive_read_support_format_tar(tar);
    if (archive_read_open(tar, input, nullptr, readBlock, nullptr) == ARCHIVE_OK) return {};
    return archiveFault("", tar);
}

// The data of the member at which the archive stands.
Fault readMember(archive* tar, const TarMember& member, const MemberSink& take) {
    std::vector<char> chunk(kChunk);
    uint64_t offset = 0;
    for (;;) {
        const la_ssize_t got = archive_read_data(tar, chunk.data(), chunk.size());
        if (got < 0) return archiveFault("", tar);
        take(member, offset, chunk.data(), static_cast<size_t>(got));
        if (got == 0) return {};
        offset += static_cast<uint64_t>(got);
    }
}

}  // namespace

Fault writeTar(const std::vector<TarInput>& inputs, time_t mtime, const ByteSink& sink,
               const InputSink& read) {
    TarOutput output = {sink, {}};  // outlives the writer, whose release may still write
    const Writer tar(archive_write_new());
    if (tar == nullptr) return {ENOMEM, "no memory for a tar"};
    archive_write_set_format_ustar(tar.get());
    archive_write_add_filter_none(tar.get());
    archive_write_set_bytes_per_block(tar.get(), kWriteBlock);
    archive_write_set_bytes_in_last_block(tar.get(), kTarBlock);
    if (archive_write_open(tar.get(), &output, nullptr, writeBlock, nullptr) != ARCHIVE_OK)
        return outputFault(tar.get(), output);
    for (const TarInput& input : inputs) {
        if (Fault fault = writeMember(tar.get(), output, input, mtime, read)) {
            output.fault = fault;  // nothing of what the header promises is filled up
            archive_write_close(tar.get());
            return fault;
        }
    }
    return archive_write_close(tar.get()) == ARCHIVE_OK ? Fault() : outputFault(tar.get(), output);
}

Fault listTar(const std::string& path, std::vector<TarMember>* members, std::string* compression) {
    members->clear();
    compression->clear();
    const TakeMember take = [members, compression](const TarMember& member, archive* tar) -> Fault {
        members->push_back(member);
        if (archive_filter_code(tar, 0) != ARCHIVE_FILTER_NONE) *compression = archive_filter_name(tar, 0);
        return {};
    };
    const Reader tar(archive_read_new());
    if (tar == nullptr) return fileFault(path, ENOMEM);
    if (Fault fault = openTar(path, tar.get())) return fault;
    return walkMembers(path, tar.get(), take);
}

Fault passOverTar(const std::string& path, const FileKey& key, const MemberSink& take, WorkProgress* progress,
                  TarPass* pass) {
    TarInputStream input;
    if (Fault fault = input.source.open(path, key, progress)) return fault;
    const Reader tar(archive_read_new());
    if (tar == nullptr) return fileFault(path, ENOMEM);
    const TakeMember takeMember = [&](const TarMember& member, archive* at) -> Fault {
        pass->members.push_back(member);
        if (archive_filter_code(at, 0) != ARCHIVE_FILTER_NONE) pass->compression = archive_filter_name(at, 0);
        return member.type == TarMember::eFile ? readMember(at, member, take) : Fault();
    };
    pass->tarFault = openStream(&input, tar.get());
    if (!pass->tarFault) pass->tarFault = walkMembers("", tar.get(), takeMember);
    if (input.fault) return input.fault;
    if (Fault fault = input.source.finish(&pass->size, &pass->sha256)) return fault;
    pass->cipherFault = input.source.cipherFault();
    return {};
}
