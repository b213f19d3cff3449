// Tars that are the same byte for byte whoever makes them, and the view into any tar.

#pragma once

#include "fault.h"
#include "work_progress.h"

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
    bool isSparse;           // its holes are left out of the tar, which not every tar can extract
};

/// Takes the bytes of a member in their order, from `offset` 0; a second member of the name begins at 0 again.
using MemberSink = std::function<void(uint64_t offset, const char* bytes, size_t size)>;

/// Lists the tar at `path`, compressed or not, in its own order. A name that is there twice is listed twice.
/// \param members receives, of a tar that is damaged, those before the damage: none means that it is no tar at all.
///        The name of a directory has no slash at its end.
/// \param compression receives the name of the outermost one; empty: none.
Fault listTar(const std::string& path, std::vector<TarMember>* members, std::string* compression);

/// Reads one regular file of a tar, as far as its first `most` bytes; of several of one name the last.
/// \return ENOENT if it is not there.
Fault readTarMember(const std::string& path, const std::string& name, size_t most, std::string* bytes);

/// Reads one regular file of a tar and passes its bytes to `take`; of several of one name the last is what an extraction
/// leaves.
/// \param md5 receives its digest.
/// \return ENOENT if it is not there.
Fault digestTarMember(const std::string& path, const std::string& name, const MemberSink& take,
                      WorkProgress* progress, std::string* md5);
