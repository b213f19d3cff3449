// The catalogue of all findings. Published codes and their severities never change.

#include "spec_view/finding.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace {

struct CatalogueEntry {
    const char* code;
    Severity severity;
    const char* advice;
};

// Indexed by FindingCode.
constexpr CatalogueEntry kCatalogue[] = {
    {"device-refuses", eError,
     "Fix what the message names. Add another model only if the images are made for it."},
    {"device-accepts", eError,
     "Make the spec refuse it, by its models or the images' dependencies; or name it without \"refuses:\"."},
    {"spec-too-large", eError, "Shorten comments, whitespace and names."},
    {"spec-near-limit", eWarning, "Shorten the spec before the next addition breaks the limit."},
    {"function-word", eError, "Write another word, or join a letter or a digit to this one."},
    {"evaluation-limit", eError, "Remove functions, and long or deep tables: a spec is data."},
    {"comment-as-marker", eError, "Remove the comment that they begin, then sign the spec."},
    {"signature-unverified", eNote, "Give the device's public key with --pub."},
    {"signature-missing", eError,
     "Let a service sign what \"rovu-pack sign --digest\" prints, then append it: rovu-pack attach."},
    {"repeated-key", eWarning, "Keep the intended one; the device takes the last one."},
    {"unread-key", eWarning, "Remove it, or write the intended key."},
    {"behind-gap", eError, "Close the gap: entries are read up to the first nil."},
    {"nil-value", eError, "Put the value between quotes, or remove the key."},
    {"hardware-token", eWarning,
     "Separate the models by single commas, without spaces, and leave no model empty."},
    {"bad-digest", eError,
     "Copy the digest that sha256sum or md5sum prints of the file that was built and tested."},
    {"no-digest", eWarning,
     "Fill in the digest of the file that was built and tested, so that the signature covers it."},
    {"digest-placeholder", eError, "Fill in the digest of the file that was built and tested."},
    {"same-digest", eWarning, "Fill in the digest and the URL of each file separately."},
    {"limit-zero", eWarning, "Give the size of the file."},
    {"limit-too-small", eError,
     "Make sure that this is the file that was built and tested, then give its size."},
    {"limit-loose", eNote,
     "Give the size of the file, or in a manifest none: the progress percentage refers to the limit."},
    {"negative-size", eError, "Give the size in bytes."},
    {"volume-too-small", eError, "Give at least the size of the image."},
    {"volume-loose", eNote, "Give the size of the image, and some space to grow."},
    {"number-too-large", eError, "Give the size in bytes, 2147483647 at most."},
    {"overlay-fraction", eWarning, "Write 1 to clone the overlay, or 0."},
    {"overlay-without-image", eWarning,
     "Remove clone_overlay: the overlay is cloned only before the first image."},
    {"version-number", eWarning, "Put the version between quotes."},
    {"version-misread", eWarning, "Write at most four fields, each from 0 to 65535, with single dots."},
    {"name-empty", eError, "Name the member."},
    {"name-quote", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-newline", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-hyphen", eError, "Begin the name with a letter, a digit or '_'."},
    {"name-backslash", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-collides", eError, "Give the member another name."},
    {"command-too-long", eError, "Shorten the name."},
    {"two-of-a-kind", eError,
     "Fix the type if one is of the other kind; else keep the image that belongs to this update."},
    {"no-mandatory-image", eError,
     "Make both images mandatory; end the list with 'exit_success' only if nothing is to be flashed."},
    {"behind-exit-success", eWarning,
     "Remove 'exit_success' if the run is to continue there; else remove what follows it."},
    {"no-switch", eWarning, "Remove 'exit_success' if the device is to boot what was flashed."},
    {"preparation-late", eWarning, "Move it to the beginning of the list, or name it without '_'."},
    {"nearly-exit-success", eWarning, "Write exit_success, or give the script another name."},
    {"script-tar-unused", eNote, "List the scripts, or remove script_url, script_hash and script_dlsize."},
    {"stale-volume", eWarning,
     "Give both images, and make both mandatory, so that what boots was tested together."},
    {"stale-data", eWarning, "Set clone_overlay to 1, if the device is to keep its data."},
    {"boots-refused-pair", eError, "Give both images, and make both mandatory."},
    {"boots-blank", eError, "Give both images, make both mandatory, and set clone_overlay to 1."},
    {"downgrade", eNote, "Make sure that this is intended: the device does not compare the two."},
    {"same-version", eWarning, "Raise the versions, if these are not the images that the device runs."},
    {"versions-exchanged", eWarning, "Give each image its own version."},
    {"model-unnamed", eWarning,
     "Name a kind of that model with --device; remove the model only if the update is not for it."},
    {"dep-not-table", eError,
     "Put each dependency into its own braces, as in { { 'kernel', '3.10', '3.11' } }."},
    {"dep-wrong-kind", eWarning, "Name the kind that is tested, and check that the versions are its own."},
    {"dep-unsatisfiable", eError,
     "All entries must hold: give one range around all that was tested, and exclude the rest with '!'."},
    {"dep-images-disagree", eError,
     "Give the image that this list was written for; change the list only for a pair that was tested."},
    {"dep-one-version", eWarning, "End with all four fields of the last version that is meant"},
    {"dep-narrow-hole", eNote, "End with all four fields of the last version that is meant"},
    {"optional-never", eWarning, "Make the image mandatory, so that what boots was tested together."},
    {"url-scheme", eError, "Begin the URL with http:// or https://."},
    {"url-whitespace", eError, "Write %20 for a space, and remove line ends."},
    {"url-loopback", eNote,
     "Write the URL under which devices reach the file, if the update is to be published."},
    {"url-character", eWarning, "Fill the URL in, and write other characters as %XX."},
    {"url-host", eError, "Write the URL as http://HOST/PATH."},
    {"url-refused", eError, "Write the URL as http://HOST/PATH or http://HOST:PORT/PATH."},
    {"url-version", eNote, "Make sure that the folder is that of this release."},
    {"url-credentials", eNote,
     "Let devices fetch the file without a password; if it is secret, encrypt the update."},
    {"url-folder", eWarning, "Give the URL of the file."},
    {"private-key-served", eError,
     "Remove it from the folder. If it has been served, give the devices another key."},
    {"secret-served", eError,
     "Remove it from the folder. If it has been served, encrypt with another secret from now on."},
    {"secrets-odd", eWarning, "Give the devices' key file; \"rovu-pack secret\" makes one."},
    {"file-unnamed", eNote, "Remove it from the folder, if no other spec names it."},
    {"fetch-fails", eError, "Make the server return the file itself at this URL, or fix the URL."},
    {"fetch-no-range", eWarning, "Make the server answer range requests, as nginx does for files."},
    {"tar-missing", eError, "Put the file there, or fix the URL."},
    {"tar-unreadable", eNote, "Make the file readable for the web server, as chmod a+r does."},
    {"tar-not-opened", eNote, "Give the device's key file with --secrets."},
    {"not-a-tar", eError,
     "Copy the file that was built and tested again; make it with tar if it never was one."},
    {"compressed-tar", eWarning, "Serve the plain tar, or make sure that the device's tar detects this."},
    {"member-missing", eError,
     "Write the name that tar -tf prints for the image, or make the tar again with the image."},
    {"script-missing", eError,
     "Write the name that tar -tf prints for the script, or make the tar again with the script."},
    {"script-empty", eWarning, "Write the script, or remove its name from the spec."},
    {"script-line-ends", eError, "Store the script with LF line ends, as dos2unix does."},
    {"script-byte-order-mark", eError, "Store the script without a byte-order mark."},
    {"script-binary", eError, "Call the program from a script, or name the script that was meant."},
    {"script-syntax", eError, "Fix the line; \"busybox sh -n SCRIPT\" shows it."},
    {"script-interpreter", eWarning, "Write it for a POSIX shell, or call its program from such a script."},
    {"script-bash", eNote, "Write it for a POSIX shell, or make sure that the device's /bin/sh is bash."},
    {"script-hazard", eNote, "Make sure that the script does not depend on it on the device."},
    {"script-last-test", eNote,
     "Write the test as an if; or, if the script is to fail there, with \"|| exit 1\"."},
    {"script-danger", eWarning,
     "Leave it to rovu, or to a separate update that was tried on a device that you can reach."},
    {"script-unset", eWarning, "Set the variable first, or write ${NAME:-} if it may be empty."},
    {"script-character", eWarning,
     "Write the line with plain ASCII characters, and replace the placeholder."},
    {"script-unused", eNote, "Name it in the spec if it is to run; else leave it out of the tar."},
    {"member-link", eError, "Store the file itself."},
    {"member-climbs", eError, "Use plain paths below the work directory."},
    {"member-sparse", eError, "Make the tar without -S or --sparse."},
    {"member-twice", eNote, "Make the tar again: the last of the two is extracted."},
    {"not-an-image", eError, "Give the file that the build of the kernel or the root file system made."},
    {"image-kind", eError, "Give each entry its own image: the two may be exchanged."},
    {"image-compressed", eError, "Decompress the image before it is put into the tar."},
    {"image-processor", eError, "Give the image that was built for the device."},
    {"image-cut-short", eError,
     "Copy the image that was tested again, and compare its digest with that of the original."},
    {"image-checksum", eError,
     "Copy the image that was tested again, and compare its digest with that of the original."},
    {"image-header", eError, "Make the image again with the tool that makes its header."},
    {"image-old", eWarning,
     "Make the image with mksquashfs 4, or make sure that the device's kernel mounts it."},
    {"image-needs-kernel", eWarning,
     "Make the image with a compression of that kernel, or make sure that the kernel has this one."},
    {"image-version", eWarning,
     "Give the kernel of that version; if it is the right one, write its own release as the version."},
    {"kernel-release", eError,
     "Build the kernel with a release of up to four numbers, as 3.10.53 or 3.10.53-2."},
    {"image-leb-size", eError, "Make the UBIFS with the device's LEB size (mkfs.ubifs -e)."},
    {"digest-mismatch", eError,
     "Copy the file that was built and tested again. Sign another digest only if this one was tested."},
    {"key-without-encryption", eError,
     "Encrypt every tar; take encr_key_offset out only if everybody may read the update."},
    {"encrypted-without-key", eError,
     "Name its key with encr_key_offset; if it is not encrypted, copy the file again."},
    {"decryption-fails", eError,
     "Make sure that --secrets is the devices' key file; if it is, encrypt the tars again with the key at encr_key_offset."},
    {"room-needed", eNote, "Make sure that the file system of the device's /tmp has that much room."},
    {"room-tmp", eError,
     "Make the images smaller, or make room in /tmp. Two updates must each write both images: what one of them leaves out boots as an earlier update left it."},
    {"room-lebs", eError, "Make imsize smaller, but not smaller than the image; or make the image smaller."},
    {"room-uncertain", eWarning, "Say more about the device: \"data=\" is the size of its data volume."},
};
static_assert(sizeof kCatalogue / sizeof kCatalogue[0] == eFindingCodeCount, "one entry for each code");

// Findings without a line come last.
int lineOrder(const Finding& finding) {
    return finding.place.line == 0 ? INT_MAX : finding.place.line;
}

}  // namespace

Finding& Findings::add(FindingCode code, FindingPlace place, std::string why) {
    const CatalogueEntry& entry = kCatalogue[code];
    all.push_back({code, entry.severity, std::move(place), std::move(why), entry.advice});
    return all.back();
}

void Findings::sort() {
    std::stable_sort(all.begin(), all.end(), [](const Finding& a, const Finding& b) {
        return a.severity != b.severity ? a.severity > b.severity : lineOrder(a) < lineOrder(b);
    });
}

void Findings::append(const Findings& more) {
    all.insert(all.end(), more.all.begin(), more.all.end());
}

size_t Findings::count(Severity severity) const {
    return static_cast<size_t>(std::count_if(
        all.begin(), all.end(), [severity](const Finding& finding) { return finding.severity == severity; }));
}

const char* findingCodeText(FindingCode code) {
    return kCatalogue[code].code;
}

const char* severityText(Severity severity) {
    constexpr const char* kTexts[] = {"note", "warning", "error"};
    return kTexts[severity];
}
