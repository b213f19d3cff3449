// The catalogue of all findings. A code that is in the world stays in it, with its severity.

#include "finding.h"

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
    {"device-refuses", eError, "Fix what the message names: as it is, the update does not run there."},
    {"spec-too-large", eError, "Shorten comments, whitespace and names, or split the update."},
    {"spec-near-limit", eWarning, "Shorten the spec before the next addition breaks the limit."},
    {"function-word", eError, "Write another word, or join a letter or a digit to this one."},
    {"evaluation-limit", eError, "Take functions, and long or deep tables, out: a spec is data."},
    {"comment-as-marker", eError, "Sign the spec, or take the comment that they begin out."},
    {"signature-unverified", eNote, "Give the device's public key with --pub."},
    {"signature-missing", eError,
     "Let a service sign what \"rovu-pack sign --digest\" prints, then append it: rovu-pack attach."},
    {"repeated-key", eWarning, "Keep one of the two."},
    {"unread-key", eWarning, "Take it out, or write the intended key."},
    {"behind-gap", eError, "Close the gap: entries are read up to the first nil."},
    {"nil-value", eError, "Put the value between quotes, or take the key out."},
    {"hardware-token", eWarning, "Separate the models by commas alone, and let no model be empty."},
    {"bad-digest", eError, "Copy the digest as sha256sum or md5sum prints it."},
    {"no-digest", eWarning, "Fill the digest in, so that the signature reaches the file."},
    {"digest-placeholder", eError, "Fill in the digest of the file that is served."},
    {"same-digest", eWarning, "Fill in the digest and the URL of each file of its own."},
    {"limit-zero", eWarning, "Give the size of the file."},
    {"limit-too-small", eError, "Give the size of the file as it is served."},
    {"limit-loose", eNote, "Give the size of the file: the progress percentage refers to the limit."},
    {"negative-size", eError, "Give the size in bytes."},
    {"volume-too-small", eError, "Give at least the size of the image."},
    {"volume-loose", eNote, "Give the size of the image, and what it may grow by."},
    {"number-too-large", eError, "Give the size in bytes, 2147483647 at most."},
    {"overlay-fraction", eWarning, "Write 1 to clone the overlay, or 0."},
    {"overlay-without-image", eWarning,
     "Take clone_overlay out: the overlay is cloned before the first image only."},
    {"version-number", eWarning, "Put the version between quotes."},
    {"version-misread", eWarning, "Write at most four fields, each from 0 to 65535, with single dots."},
    {"name-empty", eError, "Name the member."},
    {"name-quote", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-newline", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-hyphen", eError, "Begin the name with a letter, a digit or '_'."},
    {"name-backslash", eError, "Use letters, digits, '.', '_' and '-' in names."},
    {"name-collides", eError, "Give the member another name."},
    {"command-too-long", eError, "Shorten the name."},
    {"two-of-a-kind", eError, "Leave one image of each kind."},
    {"no-mandatory-image", eError, "Make an image mandatory, or end the list with 'exit_success'."},
    {"behind-exit-success", eWarning, "Move it before 'exit_success', or take it out."},
    {"no-switch", eWarning, "Take 'exit_success' out if the device is to boot what was flashed."},
    {"preparation-late", eWarning, "Move it to the beginning of the list, or name it without '_'."},
    {"nearly-exit-success", eWarning, "Write exit_success, or give the script another name."},
    {"script-tar-unused", eNote, "List the scripts, or take script_url, script_hash and script_dlsize out."},
    {"stale-volume", eWarning,
     "Write both images: make them mandatory, so that what boots was tested together."},
    {"stale-data", eWarning, "Set clone_overlay to 1, if the device is to keep its data."},
    {"boots-refused-pair", eError, "Write both images: make the other one mandatory too."},
    {"boots-blank", eError, "Write both images, and set clone_overlay to 1."},
    {"downgrade", eNote, "Make sure that this is intended: the device does not compare the two."},
    {"dep-not-table", eError,
     "Give each dependency braces of its own, as in { { 'kernel', '3.10', '3.11' } }."},
    {"dep-wrong-kind", eWarning, "Name the kind that is tested, and check that the versions are its own."},
    {"dep-unsatisfiable", eError, "Widen the ranges until they have a version in common."},
    {"dep-images-disagree", eError, "Change the range or the other image's version."},
    {"dep-one-version", eWarning, "Give the end of the range all four fields, as in '3.10.49.65535'."},
    {"dep-narrow-hole", eNote, "Give the end of the range all four fields, as in '3.10.49.65535'."},
    {"optional-never", eWarning, "Make the image mandatory, take it out, or change the dependency lists."},
    {"url-scheme", eError, "Begin the URL with http:// or https://."},
    {"url-whitespace", eError, "Write %20 for a space, and take line ends out."},
    {"url-loopback", eNote,
     "Write the URL under which devices reach the file, if the update is to be published."},
    {"url-character", eWarning, "Fill the URL in, and write other characters as %XX."},
    {"url-host", eError, "Write the URL as http://HOST/PATH."},
    {"url-credentials", eNote, "Let devices fetch the file without a password: the signature protects it."},
    {"url-folder", eWarning, "Give the URL of the file."},
    {"private-key-served", eError,
     "Take it out of the folder. If it has been served, give the devices another key."},
    {"tar-missing", eError, "Put the file there, or fix the URL."},
    {"tar-unreadable", eNote, "Make the file readable for the web server, as chmod a+r does."},
    {"tar-not-opened", eNote, "Give the device's key file with --secrets."},
    {"not-a-tar", eError, "Make the file with tar, without a compression that the device does not know."},
    {"compressed-tar", eWarning, "Serve the plain tar, or make sure that the device's tar detects this."},
    {"member-missing", eError, "Write the name as tar -tf prints it, or add the member."},
    {"script-missing", eError, "Write the name as tar -tf prints it, or add the script."},
    {"script-empty", eWarning, "Write the script, or take it out."},
    {"script-line-ends", eError, "Store the script with line feeds alone, as dos2unix does."},
    {"script-byte-order-mark", eError, "Store the script without a byte-order mark."},
    {"script-binary", eError, "Call the program from a script, or name the script that was meant."},
    {"script-syntax", eError, "Fix the line; \"sh -n SCRIPT\" shows it."},
    {"script-interpreter", eWarning, "Write it for a POSIX shell, or call its program from such a script."},
    {"script-bash", eNote, "Write it for a POSIX shell, or make sure that the device's /bin/sh is bash."},
    {"script-hazard", eNote, "Make sure that the script needs none of it from the device."},
    {"script-last-test", eNote, "End the script with \"true\", or write the test as an if."},
    {"script-unused", eNote, "Name it in the spec, or leave it out of the tar."},
    {"member-link", eError, "Store the file itself."},
    {"member-climbs", eError, "Use plain paths below the work directory."},
    {"member-sparse", eError, "Make the tar without -S or --sparse."},
    {"member-twice", eNote, "Make the tar anew: the last of the two is extracted."},
    {"not-an-image", eError, "Give the file that the kernel or the root file system was built as."},
    {"image-kind", eError, "Give each entry its own image: the two may be exchanged."},
    {"image-compressed", eError, "Decompress the image before it is put into the tar."},
    {"image-processor", eError, "Give the image that was built for the device."},
    {"image-cut-short", eError, "Copy the image again, and compare its digest with that of the original."},
    {"image-old", eWarning,
     "Make the image with mksquashfs 4, or make sure that the device's kernel mounts it."},
    {"image-version", eWarning,
     "Give the kernel's own release: later updates test what \"uname -r\" prints."},
    {"kernel-release", eError,
     "Build the kernel with a release of up to four numbers, as 3.10.53 or 3.10.53-2."},
    {"image-leb-size", eError, "Make the UBIFS with the device's LEB size (mkfs.ubifs -e)."},
    {"digest-mismatch", eError, "Fill in the digest of the file that is served."},
    {"key-without-encryption", eError, "Encrypt every tar of the spec, or take encr_key_offset out."},
    {"encrypted-without-key", eError, "Name the key with encr_key_offset, or serve the plain tar."},
    {"decryption-fails", eError,
     "Encrypt the tar with the key and IV at encr_key_offset, or fix the offset."},
    {"room-needed", eNote, "Make sure that the file system of the device's /tmp has that much room."},
    {"room-tmp", eError, "Make images or scripts smaller, or split the update into one for each image."},
    {"room-lebs", eError, "Make imsize smaller, but not smaller than the image; or make the image smaller."},
};
static_assert(sizeof kCatalogue / sizeof kCatalogue[0] == eFindingCodeCount, "one entry for each code");

// What has no line comes after what has one.
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
