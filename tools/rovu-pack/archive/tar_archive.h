// Makes reproducible tars, and reads any tar.

#pragma once

#include "host/fault.h"
#include "host/progress_bar.h"
#include "transfer/file_decryption.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

/// A file that goes into a tar.
struct TarInput {
    std::string member;  // its name there
    std::string source;  // the local file; a link is followed
    bool executable;     // mode 0755 instead of 0644; the local file's mode is not looked at
};

/// Takes bytes in their order.
using ByteSink = std::function<Fault(const char* bytes, size_t size)>;

/// Takes the bytes of one of the local files.
using InputSink = std::function<void(const TarInput& input, const char* bytes, size_t size)>;

/// Makes a tar with the members in the order given, and passes it to `tar` in pieces. Nothing of the local files but
/// their bytes gets in: owner and group are 0 and have no names, and every time is `mtime`.
/// \param read is called with the local files' bytes as they are read.
Fault writeTar(const std::vector<TarInput>& inputs, time_t mtime, const ByteSink& tar, const InputSink& read);

struct TarMember {
    enum Type { eFile, eDirectory, eSymbolicLink, eHardLink, eOther };
    std::string name;
    Type type;
    uint64_t size;           // bytes
    std::string linkTarget;  // empty for what is no link
    bool isSparse;           // it is stored as a sparse file, which not every tar can extract
};

/// Takes the bytes of a member in their order, from `offset` 0, and none (`size` 0) at its end; a second member of the
/// name, which is what an extraction leaves, begins at 0 again.
using MemberSink =
    std::function<void(const TarMember& member, uint64_t offset, const char* bytes, size_t size)>;

/// Lists the tar at `path`, compressed or not, in its own order. A name that is there twice is listed twice.
/// \param members receives, of a tar that is damaged, those before the damage: none means that it is no tar at all.
///        The name of a directory has no slash at its end.
/// \param compression receives the name of the outermost one; empty: none.
Fault listTar(const std::string& path, std::vector<TarMember>* members, std::string* compression);

/// What one pass over a tar's file tells.
struct TarPass {
    uint64_t size = 0;               // bytes of the file
    std::string sha256;              // likewise
    std::vector<TarMember> members;  // as of listTar(), also if the tar is damaged
    std::string compression;         // as of listTar()
    Fault tarFault;                  // the file, decrypted, is no tar, or is damaged; names no file
    Fault cipherFault;               // the file does not decrypt (EBADMSG)
};

/// Reads the file at `path` once to its end, whether it is a tar or not, and decrypts it if `key` is present. Nothing
/// decrypted is written anywhere.
/// \param take receives the bytes of each regular file in it.
/// \return a fault of the file itself: it cannot be read, or is no regular file; EINTR.
Fault passOverTar(const std::string& path, const FileKey& key, const MemberSink& take, WorkProgress* progress,
                  TarPass* pass);
