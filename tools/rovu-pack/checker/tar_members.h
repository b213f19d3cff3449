// The members of a tar, against what the spec asks for.

#pragma once

#include "image_content.h"
#include "tars.h"

#include <map>
#include <string>
#include <vector>

/// Most bytes of a script that are looked at.
constexpr size_t kMostOfScript = 1048576;

/// What a build knows of a tar that it has just made: the spec's digests are those of its files, which need not be
/// read again, nor decrypted.
struct BuiltTar {
    std::vector<TarMember> members;
    ImageContent image;
    std::map<std::string, std::string>
        scripts;  // any member's bytes, as far as kMostOfScript; none if it is empty
};

using BuiltTars = std::map<std::string, BuiltTar>;  // by the names of their files

/// Where the bytes of members come from.
struct MemberSource {
    std::string path;       // the tar, decrypted
    const BuiltTar* built;  // null: the tar is read
    WorkProgress* progress;
};

/// \param tars of which `*tar`, with its members, is one. One file may be several of them.
/// \param tar receives what its image says of the flash.
Findings checkMembers(const SpecView& spec, const Tars& tars, const MemberSource& source, TarFacts* tar);
