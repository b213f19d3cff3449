// The update spec as the program uses it: a record with an ordered list of parts.
//
// All strings are fixed, terminated arrays, whose sizes are limits of the format. The spec owns its parts and
// an image owns its dependencies. Parts are allocated by calls that report failure: a device that is out of memory
// must end its run cleanly.

#pragma once

#include "util/version.h"

#include <cstdint>

/// A link of a circular list, whose sentinel lies in the record that owns the list.
struct ListNode {
    ListNode* next;
    ListNode* prev;
};

struct UpdateSpecVer1 {
    enum PartType : uint32_t { eTypeScript, eTypeKernel, eTypeRootfs };
    enum Update : uint32_t { eUpdateOptional, eUpdateMandatory };

    /// One entry of an image's dependency list: a range of versions, both ends included.
    struct Dep {
        PartType kind;  // as written; every entry is tested against the same version
        bool negated;   // holds outside the range
        PackedVersion min;
        PackedVersion max;
    };

    struct Image {
        Update update;
        PackedVersion version;
        uint32_t imsize;  // bytes of the volume to be made
        uint32_t dlsize;  // most bytes of the tar; 0: no limit
        char url[160];
        char hash[65];      // SHA-256 of the tar as it travels
        char localName[8];  // the tar's name in the work directory
        char image[64];     // the tar's member that the volume is made from
        char image_md5[33];
        char preinst[32];   // member of the tar; empty: none
        char postinst[32];  // member of the tar; empty: none
        uint32_t depCount;
        Dep* deps;  // heap, owned; null if there are none
    };

    /// One step of the update. A script's record is allocated only as far as its `name`, so test `type`
    /// first: the image of a script does not exist.
    struct Part {
        PartType type;
        ListNode node;
        union {
            char name[32];  // eTypeScript
            Image img;      // eTypeKernel, eTypeRootfs
        };
    };

    char hardware[32];       // models, separated by commas
    uint32_t script_dlsize;  // most bytes of the script tar; 0: no limit
    char script_url[160];    // empty: no script tar
    char script_hash[65];    // SHA-256 of the script tar as it travels
    bool clone_overlay;
    int32_t encr_key_offset;  // bytes into the key file; negative: files are not encrypted
    ListNode parts;           // sentinel of the parts, in the order in which they are carried out
};

/// Makes the list of `spec` empty.
void initParts(UpdateSpecVer1* spec);

/// Allocates a copy of `part`, only as large as its kind of part needs, and appends it to the list. The copy
/// takes over the dependencies.
/// \return false, with nothing changed, if memory ran out.
[[nodiscard]] bool appendPart(UpdateSpecVer1* spec, const UpdateSpecVer1::Part& part);

/// The first part of the list; null if it is empty.
UpdateSpecVer1::Part* firstPart(UpdateSpecVer1* spec);

/// The part after `part`; null at the end of the list.
UpdateSpecVer1::Part* nextPart(UpdateSpecVer1* spec, UpdateSpecVer1::Part* part);

inline bool isScript(const UpdateSpecVer1::Part& part) {
    return part.type == UpdateSpecVer1::eTypeScript;
}

/// Whether `image`, which is no script, is needed whatever the device runs.
inline bool isMandatory(const UpdateSpecVer1::Part& image) {
    return image.img.update == UpdateSpecVer1::eUpdateMandatory;
}

/// Unlinks a part that is in a list, and releases it with what it owns.
void freePart(UpdateSpecVer1::Part* part);

/// Releases all parts, in list order, and then the spec, which may be null.
void freeSpec(UpdateSpecVer1* spec);
