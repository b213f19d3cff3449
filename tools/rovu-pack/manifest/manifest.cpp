#include "manifest.h"

#include <cerrno>

namespace {

std::string inFolder(const std::string& folder, const std::string& name) {
    if (name.compare(0, 1, "/") == 0 || folder == ".") return name;
    return folder.back() == '/' ? folder + name : folder + "/" + name;
}

}  // namespace

Fault Manifest::located(size_t entry, const Complaint& complaint) const {
    if (!complaint) return {};
    const std::string& key = complaint.key;
    const std::string whole = entry == kWholeManifest ? "" : std::to_string(entry);
    auto line = lines.find(whole.empty() ? key : key.empty() ? whole : whole + "." + key);
    if (line == lines.end()) line = lines.find(whole);
    std::string message = file + ":";
    if (line != lines.end()) message += std::to_string(line->second) + ":";
    if (!whole.empty()) message += " entry " + whole + ":";
    if (!key.empty()) message += " \"" + key + "\":";
    return {EINVAL, message + " " + complaint.text};
}

std::string Manifest::localFileOf(const ManifestImage* image, const std::string& member) const {
    if (image != nullptr) {
        const auto own = image->files.find(member);
        if (own != image->files.end()) return inFolder(folder, own->second);
    }
    const auto common = files.find(member);
    return inFolder(folder, common == files.end() ? member : common->second);
}
