// Compares the members of a tar with what the spec names.

#pragma once

#include "content/image_content.h"
#include "spec_view/tars.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Most bytes of a script that are looked at.
constexpr size_t kMostOfScript = 1048576;

/// The result of one pass over the bytes of a tar, by the build that made it or the check that read it.
struct TarContent {
    std::vector<TarMember> members;
    ImageContent image;
    std::optional<std::string> imageMd5;  // none: that of the spec, as after a build
    std::map<std::string, std::string>
        scripts;  // any member's bytes, as far as kMostOfScript; none if it is empty
};

using TarContents = std::map<std::string, TarContent>;  // by the names of their files

/// \param tars of which `*tar`, with its members, is one. One file may be several of them.
/// \param tar receives what its image says of the flash.
Findings checkMembers(const SpecView& spec, const Tars& tars, const TarContent& content, TarFacts* tar);
